#ifndef NCDS_FOUNDATIONS_MESSAGES_H
#define NCDS_FOUNDATIONS_MESSAGES_H

// The language of the library's messages. Every user-visible text of the library is an English
// key in the gettext domain "ncds"; the application picks a language by installing a locale
// that carries the compiled catalogs (<path>/<language>/LC_MESSAGES/ncds.mo). Without one, or
// for a key that a catalog lacks, the English text comes out.
//
// Locales are built with Boost.Locale (ICU backend), so a name such as "de_DE.UTF-8" works
// whether or not the operating system has that locale installed. Only the message catalogs
// and Boost.Locale's own facets change; number formatting of plain stream output stays as in
// the "C" locale. The global locale is process-wide: select it at start-up, before other
// threads use the library.

#include <locale>
#include <string>
#include <vector>

#include "ncds/ncds_export.h"

namespace NCMessages {

// A locale named `localeName` (for example "de_DE.UTF-8"; empty for the user's environment)
// with the "ncds" catalogs found under `catalogPaths`, searched in order. A path without a
// catalog is no error; the messages then stay English.
NCDS_EXPORT std::locale MakeLocale(const std::string& localeName,
                                   const std::vector<std::string>& catalogPaths);

// MakeLocale, installed as the global locale (std::locale::global). Returns the previous
// global locale, which the caller may put back with std::locale::global.
NCDS_EXPORT std::locale SelectLocale(const std::string& localeName,
                                     const std::vector<std::string>& catalogPaths);

// `text`, a translation key, in the global locale; for texts that do not go through
// ExceptionMessage, such as Boost.Format texts with "%1%" placeholders. Keep the literal at the
// call site so that xgettext collects it.
NCDS_EXPORT std::string Translate(const char* text);
// The same with a note that tells the translator what the text is (never shown).
NCDS_EXPORT std::string Translate(const char* context, const char* text);

}  // namespace NCMessages

#endif  // NCDS_FOUNDATIONS_MESSAGES_H
