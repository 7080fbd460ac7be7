#include "ncds/foundations/ConfigurationSection.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

#include "ncds/foundations/Exception.h"
#include "support/TestSupport.h"

namespace {

// A section with values of every kind, nested and numbered subsections.
ConfigurationSection Sample() {
  ConfigurationSection root;
  root.SetString("Title", "a & b < c > \"d\" 'e'\n\ttabbed \xC3\xA4");
  root.SetFloat("Smallest", 1e-45F);
  root.SetFloat("Largest", -FLT_MAX);
  root.SetFloat("Missing", -99.0F);
  root.SetFloat("Infinite", std::numeric_limits<float>::infinity());
  ConfigurationSection& centering = root.AddSubSection("LocalCentering");
  for (int i = 1; i <= 3; ++i) {
    ConfigurationSection& entry = centering.AddSubSection("LCData");
    entry.SetFloat("Center", 0.1F * static_cast<float>(i));
    entry.SetString("Batch", "B" + std::to_string(i));
    entry.AddSubSection("Deeper").AddSubSection("Deepest").SetString("Note", "");
  }
  centering.AddSubSection("Other");
  centering.AddSubSection("LCData").SetString("Batch", "last");
  return root;
}

TEST(ConfigurationSection, RoundTripsThroughAFile) {
  const ConfigurationSection original = Sample();
  ncds::test::TempFile file("configuration.xml");
  original.SaveFile(file.path());

  ConfigurationSection read("Stale");
  read.SetString("Gone", "x");
  read.LoadFile(file.path());
  EXPECT_EQ(read, original);
  EXPECT_EQ(read.GetName(), "Configuration");
  EXPECT_FALSE(read.HasKey("Gone"));
  EXPECT_EQ(read.SaveString(), original.SaveString());

  // Floats come back exactly, strings byte for byte.
  EXPECT_EQ(read.GetFloat("Smallest", 0.0F), 1e-45F);
  EXPECT_EQ(read.GetFloat("Largest", 0.0F), -FLT_MAX);
  EXPECT_EQ(read.GetFloat("Infinite", 0.0F), std::numeric_limits<float>::infinity());
  EXPECT_EQ(read.GetString("Title", ""), original.GetString("Title", "?"));
  ConfigurationSection nan;
  nan.SetFloat("Value", std::numeric_limits<float>::quiet_NaN());
  nan.LoadString(nan.SaveString(), "nan");
  EXPECT_TRUE(std::isnan(nan.GetFloat("Value", 0.0F)));

  // Saving again replaces the file whole and leaves no temporary file behind.
  ConfigurationSection small("Small");
  small.SaveFile(file.path());
  read.LoadFile(file.path());
  EXPECT_EQ(read, small);
  EXPECT_FALSE(std::ifstream(file.path() + ".saving").good());

  // A file that cannot be read or written is an NCError naming it.
  try {
    read.LoadFile(file.path() + ".absent");
    FAIL() << "loaded a missing file";
  } catch (const NCError& error) {
    EXPECT_NE(std::string(error.what()).find(".absent"), std::string::npos) << error.what();
  }
  EXPECT_EQ(read, small);
  EXPECT_THROW(small.SaveFile(file.path() + ".missing-folder/x.xml"), NCError);
}

TEST(ConfigurationSection, NumberedSubSectionsKeepDocumentOrder) {
  ConfigurationSection root = Sample();
  ConfigurationSection* centering = root.OpenSubSection("LocalCentering");
  ASSERT_NE(centering, nullptr);
  ASSERT_EQ(centering->CountSubSections("LCData"), 4u);
  EXPECT_EQ(centering->OpenSubSection("LCData", 1)->GetString("Batch", ""), "B1");
  EXPECT_EQ(centering->OpenSubSection("LCData", 4)->GetString("Batch", ""), "last");
  EXPECT_EQ(centering->OpenSubSection("LCData"), centering->OpenSubSection("LCData", 1));
  EXPECT_EQ(centering->OpenSubSection("LCData", 0), nullptr);
  EXPECT_EQ(centering->OpenSubSection("LCData", 5), nullptr);
  EXPECT_EQ(centering->OpenSubSection("lcdata"), nullptr) << "names are case-sensitive";
  EXPECT_EQ(centering->CountSubSections("Absent"), 0u);

  // Pointers stay valid while sections are added; copies are deep.
  const ConfigurationSection copy(root);
  ConfigurationSection* second = centering->OpenSubSection("LCData", 2);
  for (int i = 0; i < 100; ++i) centering->AddSubSection("LCData");
  EXPECT_EQ(second->GetString("Batch", ""), "B2");
  second->SetString("Batch", "changed");
  EXPECT_EQ(
      copy.OpenSubSection("LocalCentering")->OpenSubSection("LCData", 2)->GetString("Batch", ""),
      "B2");

  // Removing one name keeps the others and their order.
  EXPECT_EQ(centering->RemoveSubSections("LCData"), 104u);
  EXPECT_EQ(centering->CountSubSections("LCData"), 0u);
  ASSERT_EQ(centering->SizeSubSections(), 1u);
  EXPECT_EQ(centering->GetSubSection(0).GetName(), "Other");

  // Assigning a section of another name to a subsection renames it in its parent's index.
  ConfigurationSection& other = *centering->OpenSubSection("Other");
  other = ConfigurationSection("Renamed");
  EXPECT_EQ(centering->OpenSubSection("Other"), nullptr);
  EXPECT_EQ(centering->OpenSubSection("Renamed"), &other);
  other = copy;  // a copy of a whole tree, with its own subsections
  EXPECT_EQ(centering->OpenSubSection("Configuration"), &other);
  EXPECT_EQ(other.OpenSubSection("LocalCentering")->CountSubSections("LCData"), 4u);
}

TEST(ConfigurationSection, MissingKeysAndBadNames) {
  ConfigurationSection section;
  float number = 7.0F;
  std::string text = "kept";
  EXPECT_FALSE(section.ReadFloat("Absent", number));
  EXPECT_FALSE(section.ReadString("Absent", text));
  EXPECT_EQ(number, 7.0F);
  EXPECT_EQ(text, "kept");
  EXPECT_EQ(section.GetFloat("Absent", -1.5F), -1.5F);
  EXPECT_EQ(section.GetString("Absent", "default"), "default");

  // Texts that are numbers read as floats, others only as strings.
  section.SetString("Padded", " 2.5e1 ");
  section.SetString("Word", "2.5x");
  section.SetString("Empty", "");
  EXPECT_EQ(section.GetFloat("Padded", 0.0F), 25.0F);
  EXPECT_FALSE(section.ReadFloat("Word", number));
  EXPECT_FALSE(section.ReadFloat("Empty", number));
  EXPECT_TRUE(section.ReadString("Empty", text));
  EXPECT_EQ(text, "");
  section.SetFloat("Word", 3.0F);
  EXPECT_EQ(section.GetString("Word", ""), "3");
  EXPECT_TRUE(section.RemoveKey("Word"));
  EXPECT_FALSE(section.RemoveKey("Word"));

  // Names that cannot be XML names are refused before anything changes.
  const std::string bads[] = {"", "1st", "has space", "a<b", "-x", std::string("a\0b", 3)};
  for (const std::string& bad : bads) {
    EXPECT_THROW(section.SetString(bad, "v"), InvalidArgument) << bad;
    EXPECT_THROW(section.AddSubSection(bad), InvalidArgument) << bad;
  }
  EXPECT_EQ(section.GetValues().size(), 2u);
  EXPECT_EQ(section.SizeSubSections(), 0u);
  EXPECT_TRUE(ConfigurationSection::IsValidName("_a:b-c.1\xC3\xA4"));
}

TEST(ConfigurationSection, ReadsHandWrittenFiles) {
  ConfigurationSection section;
  section.LoadString(
      "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n"
      "<!-- centers from the lab -->\n"
      "<Settings Version='2'>\n"
      "  <LocalCentering>\n"
      "    <LCData Batch=\"B&amp;1\" Center=\"-1.25\" Phase=\"P1\" Variable=\"T\"/>\n"
      "    <!-- <LCData Batch=\"skipped\"/> -->\n"
      "    <LCData Batch=\"B2\" Center=\"&#51;\"></LCData>\n"
      "  </LocalCentering>\n"
      "</Settings>\n",
      "hand");
  EXPECT_EQ(section.GetName(), "Settings");
  EXPECT_EQ(section.GetFloat("Version", 0.0F), 2.0F);
  const ConfigurationSection* centering = section.OpenSubSection("LocalCentering");
  ASSERT_NE(centering, nullptr);
  ASSERT_EQ(centering->CountSubSections("LCData"), 2u);
  EXPECT_EQ(centering->OpenSubSection("LCData", 1)->GetString("Batch", ""), "B&1");
  EXPECT_EQ(centering->OpenSubSection("LCData", 1)->GetFloat("Center", 0.0F), -1.25F);
  EXPECT_EQ(centering->OpenSubSection("LCData", 2)->GetFloat("Center", 0.0F), 3.0F);

  std::istringstream stream("<A><B/></A>");
  section.Load(stream, "stream");
  EXPECT_EQ(section.GetName(), "A");
  EXPECT_EQ(section.CountSubSections("B"), 1u);
}

TEST(ConfigurationSection, MalformedXmlNamesTheLineAndKeepsTheSection) {
  struct Case {
    const char* xml;
    std::size_t line;
  };
  const Case cases[] = {
      {"", 1},                                       // no root element
      {"<A>\n<B>\n</C>\n</A>", 3},                   // end tag mismatch
      {"<A>\n  <B x=\"1\"\n   x=\"2\"/>\n</A>", 2},  // attribute twice
      {"<A>\n\n  <B>text</B>\n</A>", 3},             // text inside a section
      {"<A>\n<B><![CDATA[x]]></B></A>", 2},          // CDATA too
      {"<A/>\n<B/>", 2},                             // a second root
      {"<A>\n<B x=\"1/>\n</A>", 2},                  // unterminated attribute
      {"<A>\n<B>\n", 2},                             // B never ends
      {"<A>\r\n<B>\r\n<!-- open\r\n</A>", 4},        // comment never ends
  };
  ncds::test::TempFile file("malformed.xml");
  for (const Case& c : cases) {
    { std::ofstream(file.path(), std::ios::binary) << c.xml; }
    ConfigurationSection section = Sample();
    try {
      section.LoadFile(file.path());
      ADD_FAILURE() << "loaded: " << c.xml;
    } catch (const NCError& error) {
      const std::string what = error.what();
      EXPECT_NE(what.find(file.path()), std::string::npos) << what;
      EXPECT_NE(what.find("line " + std::to_string(c.line) + "."), std::string::npos)
          << c.xml << " -> " << what;
    }
    EXPECT_EQ(section, Sample()) << "a failed load keeps the section: " << c.xml;
  }

  // Nesting beyond the bound is refused; at the bound it reads.
  const auto nested = [](int depth) {
    std::string xml;
    for (int i = 0; i < depth; ++i) xml += "<S>";
    for (int i = 0; i < depth; ++i) xml += "</S>";
    return xml;
  };
  ConfigurationSection section;
  EXPECT_NO_THROW(section.LoadString(nested(ConfigurationSection::kMaxDepth), "deep"));
  EXPECT_THROW(section.LoadString(nested(ConfigurationSection::kMaxDepth + 1), "deeper"), NCError);
  EXPECT_THROW(section.LoadString(nested(100000), "deepest"), NCError);
}

}  // namespace
