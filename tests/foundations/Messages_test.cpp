#include <gtest/gtest.h>

#include <boost/format.hpp>
#include <boost/locale/message.hpp>
#include <cstdint>
#include <locale>
#include <sstream>
#include <string>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

// The catalogs the test build compiles (tests/locale/<lang>/LC_MESSAGES/ncds.mo).
std::string LocaleDir() { return ncds::test::TestBinaryDir() + "/locale"; }

// Each test selects its own locale and puts the previous global locale back.
class Messages : public ::testing::Test {
 protected:
  void TearDown() override { std::locale::global(mPrevious); }
  static std::locale SelectGerman() {
    return NCMessages::SelectLocale("de_DE.UTF-8", {LocaleDir()});
  }
  static bool HasCatalog(const std::locale& locale) {
    return std::has_facet<boost::locale::message_format<char>>(locale);
  }

 private:
  std::locale mPrevious;
};

TEST_F(Messages, TranslatesWithContextAndPlaceholdersInSelectedLocale) {
  // Built before the language is chosen: translation happens when the message is shown.
  const ExceptionMessage missing = ExceptionMessage::translate("Dataset {1} does not exist.") % 7;
  EXPECT_FALSE(HasCatalog(SelectGerman()));
  EXPECT_EQ(missing.str(), "Datensatz 7 existiert nicht.");
  EXPECT_EQ(missing.str(std::locale::classic()), "Dataset 7 does not exist.");
  // The same key with and without a context has two translations; an unknown context has none.
  EXPECT_EQ(ExceptionMessage::translate("dialog caption", "Merge Datasets").str(),
            "Datensätze zusammenführen");
  EXPECT_EQ(ExceptionMessage::translate("Merge Datasets").str(), "Zusammenführen von Datensätzen");
  EXPECT_EQ(ExceptionMessage::translate("menu item", "Merge Datasets").str(), "Merge Datasets");
  EXPECT_EQ(ExceptionMessage::translate("Not in the catalog.").str(), "Not in the catalog.");
  EXPECT_EQ(ExceptionMessage::Verbatim("Merge Datasets").str(), "Merge Datasets");
  ExceptionMessageList log;
  log << (ExceptionMessage::translate("Phase {1} in batch {2} was deleted.\n") % "P" % 1.5)
      << ExceptionMessage::translate("ReadFromStreamDir failed.");
  EXPECT_EQ(log.str(),
            "Phase P in Charge 1.5 wurde gelöscht.\nReadFromStreamDir ist fehlgeschlagen.");
  // Only messages changed: plain number output keeps the '.' of the "C" locale.
  std::ostringstream number;
  number << 1234.5;
  EXPECT_EQ(number.str(), "1234.5");
  // Texts for Boost.Format go through the helper.
  EXPECT_EQ(NCMessages::Translate("dialog caption", "Merge Datasets"), "Datensätze zusammenführen");
  const std::string format =
      NCMessages::Translate("Dataset %1% and %2% have common variables and observations.");
  EXPECT_EQ((boost::format(format) % "A" % "B").str(),
            "Datensatz A und B haben gemeinsame Variablen und Beobachtungen.");
  EXPECT_TRUE(HasCatalog(NCMessages::SelectLocale("", {})));  // hands back the replaced locale
}

TEST_F(Messages, ExceptionsThrownByTheLibraryAreTranslated) {
  SelectGerman();
  std::istringstream empty;
  std::int32_t value = 0;
  try {
    ReadFourBytes(&value, 1, empty);
    FAIL() << "reading from an empty stream succeeded";
  } catch (const VxStreamError& e) {
    EXPECT_STREQ(e.what(), "Fehler beim Lesen aus dem Datenstrom.");
  }
  const NCError error(ExceptionMessage::translate("Dataset {1} does not exist.") % "Wein");
  EXPECT_STREQ(error.what(), "Datensatz Wein existiert nicht.");
  EXPECT_EQ(error.GetMessages().str(std::locale::classic()), "Dataset Wein does not exist.");
}

TEST_F(Messages, StaysEnglishWithoutCatalog) {
  NCMessages::SelectLocale("de_DE.UTF-8", {});
  EXPECT_EQ(ExceptionMessage::translate("Error when reading from stream.").str(),
            "Error when reading from stream.");
  EXPECT_STREQ(NCError(ExceptionMessage::translate("dialog caption", "Merge Datasets")).what(),
               "Merge Datasets");
  EXPECT_EQ(NCMessages::Translate("Merge Datasets"), "Merge Datasets");
  NCMessages::SelectLocale("fr_FR.UTF-8", {LocaleDir()});  // no French catalog
  EXPECT_EQ(ExceptionMessage::translate("ReadFromStreamDir failed.").str(),
            "ReadFromStreamDir failed.");
  std::locale::global(std::locale::classic());
  EXPECT_EQ(NCMessages::Translate("dialog caption", "Merge Datasets"), "Merge Datasets");
}

}  // namespace
