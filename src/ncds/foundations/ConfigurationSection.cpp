#include "ncds/foundations/ConfigurationSection.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <istream>
#include <iterator>
#include <limits>
#include <ostream>
#include <pugixml.hpp>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/Messages.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/foundations/VxString.h"

namespace ncds::detail {
namespace {

const char* const kDefaultName = "Configuration";

// The characters XML names may hold, as the parser reads them: ASCII letters, '_', ':' and
// any non-ASCII byte anywhere, digits, '-' and '.' after the first character.
bool IsNameStart(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':' || c >= 0x80;
}
bool IsNameChar(unsigned char c) {
  return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

void RequireValidName(const std::string& name) {
  if (!ConfigurationSection::IsValidName(name)) {
    throw InvalidArgument(
        ExceptionMessage::translate("\"{1}\" is not a valid name for a configuration section "
                                    "or value.") %
        name);
  }
}

std::string_view Trimmed(std::string_view text) {
  const auto space = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
  while (!text.empty() && space(text.front())) text.remove_prefix(1);
  while (!text.empty() && space(text.back())) text.remove_suffix(1);
  return text;
}

// The texts `FormatFloat` writes for values that are not finite, in any case.
bool ParseNonFinite(std::string_view text, float& value) {
  std::string lower(Trimmed(text));
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (lower == "nan" || lower == "-nan" || lower == "+nan") {
    value = std::numeric_limits<float>::quiet_NaN();
  } else if (lower == "inf" || lower == "+inf") {
    value = std::numeric_limits<float>::infinity();
  } else if (lower == "-inf") {
    value = -std::numeric_limits<float>::infinity();
  } else {
    return false;
  }
  return true;
}

// The shortest text that reads back as exactly `value` ("nan", "inf", "-inf" aside).
std::string FormatFloat(float value) {
  char buffer[64];
  const std::to_chars_result result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

// ---------------------------------------------------------------------------------------------
// Reading

// A refusal of the document: a description and the byte offset it concerns.
struct LoadFault {
  std::string description;
  std::ptrdiff_t offset;
};

// 1-based line of byte `offset` of `text`.
std::size_t LineOf(const std::string& text, std::ptrdiff_t offset) {
  const auto end = static_cast<std::size_t>(
      std::clamp<std::ptrdiff_t>(offset, 0, static_cast<std::ptrdiff_t>(text.size())));
  return 1 + static_cast<std::size_t>(std::count(text.begin(), text.begin() + end, '\n'));
}

std::string DescribeParseStatus(pugi::xml_parse_status status) {
  switch (status) {
    case pugi::status_out_of_memory:
      return NCMessages::Translate("not enough memory to read it");
    case pugi::status_unrecognized_tag:
      return NCMessages::Translate("a tag that cannot be read");
    case pugi::status_bad_pi:
      return NCMessages::Translate("a damaged processing instruction or XML declaration");
    case pugi::status_bad_comment:
      return NCMessages::Translate("a damaged comment");
    case pugi::status_bad_cdata:
      return NCMessages::Translate("a damaged CDATA section");
    case pugi::status_bad_doctype:
      return NCMessages::Translate("a damaged document type declaration");
    case pugi::status_bad_pcdata:
      return NCMessages::Translate("damaged text");
    case pugi::status_bad_start_element:
      return NCMessages::Translate("a damaged start tag");
    case pugi::status_bad_attribute:
      return NCMessages::Translate("a damaged attribute");
    case pugi::status_bad_end_element:
      return NCMessages::Translate("a damaged end tag");
    case pugi::status_end_element_mismatch:
      return NCMessages::Translate("an end tag that does not match its start tag");
    case pugi::status_no_document_element:
      return NCMessages::Translate("no root element");
    default:
      return NCMessages::Translate("a fault the XML reader cannot describe");
  }
}

// Copies the element `element` into `target` (a new, empty section), its attributes as values
// and its child elements as subsections.
void ReadElement(const pugi::xml_node& element, ConfigurationSection& target, int depth) {
  if (depth > ConfigurationSection::kMaxDepth) {
    throw LoadFault{NCMessages::Translate("sections nested too deeply"), element.offset_debug()};
  }
  for (const pugi::xml_attribute& attribute : element.attributes()) {
    const std::string key = attribute.name();
    if (target.HasKey(key)) {
      throw LoadFault{NCMessages::Translate("an attribute given twice in one element"),
                      element.offset_debug()};
    }
    if (!ConfigurationSection::IsValidName(key)) {
      throw LoadFault{NCMessages::Translate("an invalid name"), element.offset_debug()};
    }
    target.SetString(key, attribute.value());
  }
  for (const pugi::xml_node& child : element.children()) {
    if (child.type() == pugi::node_element) {
      if (!ConfigurationSection::IsValidName(child.name())) {
        throw LoadFault{NCMessages::Translate("an invalid name"), child.offset_debug()};
      }
      ReadElement(child, target.AddSubSection(child.name()), depth + 1);
    } else if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
      throw LoadFault{NCMessages::Translate("text inside a section (values are attributes)"),
                      child.offset_debug()};
    }
  }
}

// The section held by `text`; throws `NCError` naming `sourceName` and the line of a fault.
ConfigurationSection ParseDocument(const std::string& text, const std::string& sourceName) {
  pugi::xml_document document;
  const pugi::xml_parse_result result =
      document.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
  try {
    if (!result) throw LoadFault{DescribeParseStatus(result.status), result.offset};
    pugi::xml_node root;
    for (const pugi::xml_node& node : document.children()) {
      if (node.type() == pugi::node_element) {
        if (root) {
          throw LoadFault{NCMessages::Translate("a second root element"), node.offset_debug()};
        }
        root = node;
      } else if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata) {
        throw LoadFault{NCMessages::Translate("text outside the root element"),
                        node.offset_debug()};
      }
    }
    if (!root) {
      throw LoadFault{DescribeParseStatus(pugi::status_no_document_element),
                      static_cast<std::ptrdiff_t>(text.size())};
    }
    if (!ConfigurationSection::IsValidName(root.name())) {
      throw LoadFault{NCMessages::Translate("an invalid name"), root.offset_debug()};
    }
    ConfigurationSection section(root.name());
    ReadElement(root, section, 1);
    return section;
  } catch (const LoadFault& fault) {
    throw NCError(ExceptionMessage::translate("The configuration {1} cannot be read: {2} at "
                                              "line {3}.") %
                  sourceName % fault.description % LineOf(text, fault.offset));
  }
}

// ---------------------------------------------------------------------------------------------
// Writing

void WriteElement(const ConfigurationSection& section, pugi::xml_node element) {
  for (const auto& [key, value] : section.GetValues()) {
    element.append_attribute(key.c_str()).set_value(value.c_str());
  }
  for (std::size_t i = 0; i < section.SizeSubSections(); ++i) {
    const ConfigurationSection& child = section.GetSubSection(i);
    WriteElement(child, element.append_child(child.GetName().c_str()));
  }
}

void WriteDocument(const ConfigurationSection& section, std::ostream& os) {
  pugi::xml_document document;
  pugi::xml_node declaration = document.append_child(pugi::node_declaration);
  declaration.append_attribute("version").set_value("1.0");
  declaration.append_attribute("encoding").set_value("UTF-8");
  WriteElement(section, document.append_child(section.GetName().c_str()));
  document.save(os, "  ", pugi::format_default, pugi::encoding_utf8);
}

}  // namespace
}  // namespace ncds::detail

ConfigurationSection::ConfigurationSection() : mName(ncds::detail::kDefaultName) {}

ConfigurationSection::ConfigurationSection(const std::string& name) : mName(name) {
  ncds::detail::RequireValidName(name);
}

ConfigurationSection::ConfigurationSection(const ConfigurationSection& other)
    : mName(other.mName), mValues(other.mValues) {
  mSubSections.reserve(other.mSubSections.size());
  for (const auto& child : other.mSubSections) {
    mSubSections.push_back(std::make_unique<ConfigurationSection>(*child));
  }
  AdoptSubSections();
}

ConfigurationSection::ConfigurationSection(ConfigurationSection&& other) noexcept
    : mName(std::move(other.mName)),
      mValues(std::move(other.mValues)),
      mSubSections(std::move(other.mSubSections)),
      mByName(std::move(other.mByName)) {
  for (const auto& child : mSubSections) child->mParent = this;
  other.mSubSections.clear();
  other.mByName.clear();
}

ConfigurationSection& ConfigurationSection::operator=(const ConfigurationSection& other) {
  if (this != &other) {
    ConfigurationSection copy(other);
    Assign(std::move(copy.mName), std::move(copy.mValues), std::move(copy.mSubSections));
  }
  return *this;
}

ConfigurationSection& ConfigurationSection::operator=(ConfigurationSection&& other) noexcept {
  if (this != &other) {
    Assign(std::move(other.mName), std::move(other.mValues), std::move(other.mSubSections));
    other.mSubSections.clear();
    other.mByName.clear();
  }
  return *this;
}

ConfigurationSection::~ConfigurationSection() = default;

void ConfigurationSection::Assign(std::string name, std::map<std::string, std::string> values,
                                  std::vector<std::unique_ptr<ConfigurationSection>> subSections) {
  const bool renamed = name != mName;
  mName = std::move(name);
  mValues = std::move(values);
  mSubSections = std::move(subSections);
  AdoptSubSections();
  if (renamed && mParent) mParent->RebuildIndex();
}

void ConfigurationSection::AdoptSubSections() {
  for (const auto& child : mSubSections) child->mParent = this;
  RebuildIndex();
}

void ConfigurationSection::RebuildIndex() {
  mByName.clear();
  for (const auto& child : mSubSections) mByName[child->mName].push_back(child.get());
}

bool ConfigurationSection::operator==(const ConfigurationSection& other) const {
  if (mName != other.mName || mValues != other.mValues ||
      mSubSections.size() != other.mSubSections.size()) {
    return false;
  }
  for (std::size_t i = 0; i < mSubSections.size(); ++i) {
    if (*mSubSections[i] != *other.mSubSections[i]) return false;
  }
  return true;
}

void ConfigurationSection::Clear() {
  mValues.clear();
  mSubSections.clear();
  mByName.clear();
}

bool ConfigurationSection::IsValidName(const std::string& name) {
  if (name.empty() || !ncds::detail::IsNameStart(static_cast<unsigned char>(name.front()))) {
    return false;
  }
  return std::all_of(name.begin() + 1, name.end(), [](char c) {
    return ncds::detail::IsNameChar(static_cast<unsigned char>(c));
  });
}

// --- Subsections -------------------------------------------------------------------------------

ConfigurationSection* ConfigurationSection::OpenSubSection(const std::string& name) {
  return OpenSubSection(name, 1);
}

const ConfigurationSection* ConfigurationSection::OpenSubSection(const std::string& name) const {
  return OpenSubSection(name, 1);
}

ConfigurationSection* ConfigurationSection::OpenSubSection(const std::string& name,
                                                           std::size_t number) {
  const auto found = mByName.find(name);
  if (found == mByName.end() || number < 1 || number > found->second.size()) return nullptr;
  return found->second[number - 1];
}

const ConfigurationSection* ConfigurationSection::OpenSubSection(const std::string& name,
                                                                 std::size_t number) const {
  return const_cast<ConfigurationSection*>(this)->OpenSubSection(name, number);
}

std::size_t ConfigurationSection::CountSubSections(const std::string& name) const {
  const auto found = mByName.find(name);
  return found == mByName.end() ? 0 : found->second.size();
}

ConfigurationSection& ConfigurationSection::AddSubSection(const std::string& name) {
  auto child = std::make_unique<ConfigurationSection>(name);
  child->mParent = this;
  ConfigurationSection* added = child.get();
  mSubSections.push_back(std::move(child));
  mByName[name].push_back(added);
  return *added;
}

std::size_t ConfigurationSection::RemoveSubSections(const std::string& name) {
  const auto found = mByName.find(name);
  if (found == mByName.end()) return 0;
  const std::size_t removed = found->second.size();
  mByName.erase(found);
  mSubSections.erase(std::remove_if(mSubSections.begin(), mSubSections.end(),
                                    [&name](const auto& child) { return child->mName == name; }),
                     mSubSections.end());
  return removed;
}

// --- Values --------------------------------------------------------------------------------------

bool ConfigurationSection::HasKey(const std::string& key) const { return mValues.count(key) != 0; }

bool ConfigurationSection::ReadFloat(const std::string& key, float& value) const {
  const auto found = mValues.find(key);
  if (found == mValues.end()) return false;
  return VxString::ToFloat(found->second, value) ||
         ncds::detail::ParseNonFinite(found->second, value);
}

bool ConfigurationSection::ReadString(const std::string& key, std::string& value) const {
  const auto found = mValues.find(key);
  if (found == mValues.end()) return false;
  value = found->second;
  return true;
}

float ConfigurationSection::GetFloat(const std::string& key, float defaultValue) const {
  float value = defaultValue;
  return ReadFloat(key, value) ? value : defaultValue;
}

std::string ConfigurationSection::GetString(const std::string& key,
                                            const std::string& defaultValue) const {
  const auto found = mValues.find(key);
  return found == mValues.end() ? defaultValue : found->second;
}

void ConfigurationSection::SetFloat(const std::string& key, float value) {
  SetString(key, ncds::detail::FormatFloat(value));
}

void ConfigurationSection::SetString(const std::string& key, const std::string& value) {
  ncds::detail::RequireValidName(key);
  mValues.insert_or_assign(key, value);
}

bool ConfigurationSection::RemoveKey(const std::string& key) { return mValues.erase(key) != 0; }

// --- XML -----------------------------------------------------------------------------------------

void ConfigurationSection::LoadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text;
  if (file) text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  if (!file.is_open() || file.bad()) {
    throw NCError(ExceptionMessage::translate("The configuration file {1} cannot be read.") % path);
  }
  LoadString(text, path);
}

void ConfigurationSection::SaveFile(const std::string& path) const {
  const std::string text = SaveString();
  const std::string temporary = path + ".saving";
  bool written = false;
  {
    std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
    written =
        file && file.write(text.data(), static_cast<std::streamsize>(text.size())) && file.flush();
  }
  std::error_code error;
  if (written) std::filesystem::rename(temporary, path, error);
  if (!written || error) {
    std::filesystem::remove(temporary, error);
    throw NCError(ExceptionMessage::translate("The configuration file {1} cannot be written.") %
                  path);
  }
}

void ConfigurationSection::LoadString(const std::string& xml, const std::string& sourceName) {
  ConfigurationSection loaded = ncds::detail::ParseDocument(xml, sourceName);
  Assign(std::move(loaded.mName), std::move(loaded.mValues), std::move(loaded.mSubSections));
}

void ConfigurationSection::Load(std::istream& is, const std::string& sourceName) {
  std::string text(std::istreambuf_iterator<char>(is), std::istreambuf_iterator<char>{});
  if (is.bad()) {
    throw NCError(ExceptionMessage::translate("The configuration {1} cannot be read.") %
                  sourceName);
  }
  LoadString(text, sourceName);
}

std::string ConfigurationSection::SaveString() const {
  std::ostringstream os;
  ncds::detail::WriteDocument(*this, os);
  return os.str();
}

void ConfigurationSection::Save(std::ostream& os) const {
  ncds::detail::WriteDocument(*this, os);
  if (!os) {
    throw NCError(ExceptionMessage::translate("The configuration cannot be written."));
  }
}
