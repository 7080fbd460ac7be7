#include "ncds/foundations/Messages.h"

#include <boost/locale/generator.hpp>
#include <boost/locale/message.hpp>

namespace ncds::detail {
namespace {

constexpr const char* kDomain = "ncds";

}  // namespace
}  // namespace ncds::detail

namespace NCMessages {

std::locale MakeLocale(const std::string& localeName,
                       const std::vector<std::string>& catalogPaths) {
  boost::locale::generator generator;
  for (const std::string& path : catalogPaths) generator.add_messages_path(path);
  generator.add_messages_domain(ncds::detail::kDomain);
  return generator.generate(localeName);
}

std::locale SelectLocale(const std::string& localeName,
                         const std::vector<std::string>& catalogPaths) {
  return std::locale::global(MakeLocale(localeName, catalogPaths));
}

std::string Translate(const char* text) {
  const std::locale locale;
  if (!text) return std::string();
  if (!std::has_facet<boost::locale::message_format<char>>(locale)) return text;
  return boost::locale::translate(text).str(locale, ncds::detail::kDomain);
}

std::string Translate(const char* context, const char* text) {
  const std::locale locale;
  if (!text) return std::string();
  if (!context || !std::has_facet<boost::locale::message_format<char>>(locale)) return text;
  return boost::locale::translate(context, text).str(locale, ncds::detail::kDomain);
}

}  // namespace NCMessages
