#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::ReadFromString;
using ncds::test::WriteToString;

ColumnConcatenateInfo Joined(const char* separator) {
  ColumnConcatenateInfo info;
  info.GetColumns().push_back(3);
  info.GetColumns().push_back(1);
  info.SetSeparator(separator);
  return info;
}

TEST(ColumnConcatenateInfo, StreamRoundTripVersionsAndLayout) {
  const ColumnConcatenateInfo written = Joined(" - ");
  EXPECT_STREQ(written.GetSeparatorChar(), " - ");
  const std::string bytes = WriteToString(written);
  ColumnConcatenateInfo read;
  ASSERT_TRUE(ReadFromString(bytes, read));
  EXPECT_EQ(read, written);
  ColumnConcatenateInfo copy(read);
  copy.GetColumns()(0) = 9;
  EXPECT_EQ(read, written);

  // No directory: the column list follows the magic, the separator ends the stream.
  std::ostringstream expected;
  VStreamLight::WriteMagicStringAndVersionNumber(expected, 2, "CCI");
  expected << written.GetColumns();
  WriteBinaryString(" - ", expected);
  EXPECT_EQ(bytes, expected.str());

  for (const std::uint16_t version : {0, 1, 2, 3}) {
    std::string other = bytes;
    other[4] = static_cast<char>(version);
    ColumnConcatenateInfo versioned = Joined("keep");
    EXPECT_EQ(ReadFromString(other, versioned), version <= 2) << version;
    EXPECT_STREQ(versioned.GetSeparatorChar(), version <= 2 ? " - " : "keep");
  }
}

TEST(ColumnConcatenateInfo, DamagedStreamsLeaveTheObjectOrRoundTrip) {
  const std::string valid = WriteToString(Joined(std::string(300, 'x').c_str()));
  ncds::test::ForEachCorruption(valid, [](const std::string& bytes) {
    ColumnConcatenateInfo read = Joined("keep");
    if (!ReadFromString(bytes, read)) {
      EXPECT_EQ(read, Joined("keep"));
      return;
    }
    ColumnConcatenateInfo second;
    ASSERT_TRUE(ReadFromString(WriteToString(read), second));
    EXPECT_EQ(second, read);
  });
  for (std::size_t length = 0; length < valid.size(); ++length) {
    ColumnConcatenateInfo read;
    EXPECT_FALSE(ReadFromString(valid.substr(0, length), read)) << length;
  }
}

}  // namespace
