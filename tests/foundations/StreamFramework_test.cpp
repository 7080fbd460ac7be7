#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "ncds/foundations/detail/DirectoryLayout.h"
#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

// A small class hierarchy that follows the framework's conventions: the base part first,
// then a directory of the class's own fields, one of them a nested object.
class Shape : public virtual VStreamBase {
 public:
  std::string name = "shape";
  std::int32_t sides = 0;

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override {
    if (!mGuard.Enter()) return true;
    if (!msData.Write(os)) return false;
    OutputStreamDirectory dir(os, 2);
    WriteToStreamDir(name, dir, 0);
    WriteToStreamDir(sides, dir, 1);
    return dir.Close();
  }
  bool VStreamableStartRead(std::istream& is) override {
    if (!mGuard.Enter()) return true;
    std::int16_t version = 0;
    if (!msData.Check(is, version) || version != 1) return false;
    InputStreamDirectory dir(is);
    try {
      ReadFromStreamDir(name, dir, 0, true);
      ReadFromStreamDir(sides, dir, 1, true);
    } catch (const VxStreamError&) {
      return false;
    }
    dir.Close();
    return static_cast<bool>(is);
  }
  void VStreamableReset() const override { mGuard.Reset(); }

 private:
  VStreamGuard mGuard;
  static const VStreamableData msData;
};
const VStreamableData Shape::msData(1, "SHAPE");

class Drawing : public Shape {
 public:
  float scale = 1.0F;
  double weight = 0.0;
  bool visible = false;
  std::string note;  // optional: absent when empty
  Shape frame;
  Drawing* partner = nullptr;  // written through the partner's own part, may form a cycle

  static std::int16_t sWriteVersion;

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override {
    if (!mGuard.Enter()) return true;
    if (!VStreamLight::WriteMagicStringAndVersionNumber(os, sWriteVersion, "DRAWING")) {
      return false;
    }
    if (!Shape::VStreamableStartWrite(os)) return false;
    OutputStreamDirectory dir(os, 7);
    WriteToStreamDir(scale, dir, 0);
    WriteToStreamDir(weight, dir, 1);
    WriteToStreamDir(visible, dir, 2);
    if (!note.empty()) WriteToStreamDir(note, dir, 3);
    WriteToStreamDir(frame, dir, 4);
    if (partner) {
      std::ostream& out = dir.GetOutput(5);
      // A partner already being written in this pass writes nothing here.
      if (!partner->VStreamableStartWrite(out)) return false;
    }
    return dir.Close();
  }
  bool VStreamableStartRead(std::istream& is) override {
    if (!mGuard.Enter()) return true;
    std::uint16_t version = 0;
    if (!VStreamLight::CheckMagicStringAndVersionNumber(is, version, "DRAWING") || version > 2) {
      return false;
    }
    if (!Shape::VStreamableStartRead(is)) return false;
    InputStreamDirectory dir(is);
    try {
      ReadFromStreamDir(scale, dir, 0, true);
      ReadFromStreamDir(weight, dir, 1, true);
      ReadFromStreamDir(visible, dir, 2, true);
      ReadFromStreamDir(note, dir, 3, false);
      ReadFromStreamDir(frame, dir, 4, true);
    } catch (const VxStreamError&) {
      return false;
    }
    return static_cast<bool>(is);
  }
  void VStreamableReset() const override {
    mGuard.Reset();
    Shape::VStreamableReset();
  }

 private:
  VStreamGuard mGuard;
};
std::int16_t Drawing::sWriteVersion = 1;

Drawing SampleDrawing() {
  Drawing d;
  d.name = "Süd-Ost reactor";
  d.sides = 4;
  d.scale = -99.0F;
  d.weight = 1.0 / 3.0;
  d.visible = true;
  d.note = std::string("with\0zero", 9);
  d.frame.name = "frame";
  d.frame.sides = 3;
  return d;
}

std::string Write(const VStreamBase& object) {
  std::stringstream ss;
  ss << object;
  EXPECT_TRUE(ss.good());
  return ss.str();
}

bool Read(const std::string& bytes, VStreamBase& object) {
  std::istringstream is(bytes);
  return static_cast<bool>(is >> object);
}

// An output buffer that cannot seek, like a pipe.
class PipeBuf : public std::streambuf {
 public:
  std::string bytes;

 protected:
  int_type overflow(int_type c) override {
    if (c != traits_type::eof()) bytes.push_back(static_cast<char>(c));
    return c;
  }
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    bytes.append(s, static_cast<std::size_t>(n));
    return n;
  }
};

}  // namespace

TEST(StreamFramework, NestedObjectsRoundTripWithAllFieldKinds) {
  const Drawing original = SampleDrawing();
  const std::string bytes = Write(original);

  Drawing copy;
  ASSERT_TRUE(Read(bytes, copy));
  EXPECT_EQ(copy.name, original.name);
  EXPECT_EQ(copy.sides, 4);
  EXPECT_EQ(copy.scale, -99.0F);
  EXPECT_EQ(copy.weight, 1.0 / 3.0);
  EXPECT_TRUE(copy.visible);
  EXPECT_EQ(copy.note, original.note);
  EXPECT_EQ(copy.frame.name, "frame");
  EXPECT_EQ(copy.frame.sides, 3);

  // The guard flags are reset after each pass: the same objects write and read again.
  EXPECT_EQ(Write(original), bytes);
  Drawing again;
  EXPECT_TRUE(Read(bytes, again));
  EXPECT_TRUE(Read(bytes, again));

  // Objects follow one another in one stream: each read leaves the stream after its object.
  std::stringstream two;
  two << original << original.frame;
  Drawing first;
  Shape second;
  EXPECT_TRUE(two >> first);
  EXPECT_TRUE(two >> second);
  EXPECT_EQ(second.name, "frame");
  EXPECT_EQ(two.peek(), std::char_traits<char>::eof());
}

TEST(StreamFramework, AbsentTagsAndVersions) {
  Drawing plain = SampleDrawing();
  plain.note.clear();  // tag 3 is left out
  Drawing copy;
  copy.note = "kept";
  ASSERT_TRUE(Read(Write(plain), copy));
  EXPECT_EQ(copy.note, "kept") << "an absent optional tag leaves the target as it was";

  // A version the class does not accept is refused.
  Drawing::sWriteVersion = 3;
  const std::string future = Write(plain);
  Drawing::sWriteVersion = 1;
  EXPECT_FALSE(Read(future, copy));

  // A foreign magic is refused without an exception.
  Shape shape;
  EXPECT_FALSE(Read(Write(plain), shape));
  std::istringstream garbage("not a stream at all");
  EXPECT_FALSE(VStreamableData(1, "SHAPE").Check(garbage));

  // Required tag absent: the shared routine throws the framework's message.
  std::stringstream ss;
  {
    OutputStreamDirectory dir(ss, 3);
    WriteToStreamDir(std::int32_t{7}, dir, 2);
  }
  InputStreamDirectory dir(ss);
  ASSERT_TRUE(dir.IsValid());
  std::int32_t value = -1;
  EXPECT_FALSE(ReadFromStreamDir(value, dir, 0, false));
  EXPECT_EQ(value, -1);
  try {
    ReadFromStreamDir(value, dir, 1, true);
    ADD_FAILURE() << "a missing required tag must throw";
  } catch (const VxStreamError& e) {
    EXPECT_STREQ(e.what(), "ReadFromStreamDir failed.");
  }
  EXPECT_TRUE(ReadFromStreamDir(value, dir, 2, true));
  EXPECT_EQ(value, 7);
}

TEST(StreamFramework, EntriesAreBoundedAndDirectoriesChecked) {
  std::stringstream ss;
  {
    OutputStreamDirectory dir(ss, 2);
    WriteToStreamDir(std::int16_t{5}, dir, 0);  // two bytes only
    WriteToStreamDir(std::string("neighbour"), dir, 1);
  }
  {
    InputStreamDirectory dir(ss);
    std::int32_t tooWide = 0;
    EXPECT_THROW(ReadFromStreamDir(tooWide, dir, 0, true), VxStreamError)
        << "a read may not run past its entry into the next one";
    std::string neighbour;
    EXPECT_TRUE(ReadFromStreamDir(neighbour, dir, 1, true));
    EXPECT_EQ(neighbour, "neighbour");
  }

  // The declared count bounds the entries, not the tags: any 16-bit tag may be used once.
  std::stringstream out;
  {
    OutputStreamDirectory dir(out, 2);
    WriteToStreamDir(std::int32_t{7}, dir, 65535);
    EXPECT_THROW(dir.GetOutput(65535), NCInternalError);
    WriteToStreamDir(std::int32_t{8}, dir, 9);
    EXPECT_THROW(dir.GetOutput(0), NCInternalError) << "a third entry in a directory of two";
  }
  {
    InputStreamDirectory dir(out);
    std::int32_t high = 0;
    std::int32_t nine = 0;
    EXPECT_TRUE(ReadFromStreamDir(nine, dir, 9, true));
    EXPECT_TRUE(ReadFromStreamDir(high, dir, 65535, true));
    EXPECT_EQ(high, 7);
    EXPECT_EQ(nine, 8);
    EXPECT_FALSE(dir.HasTag(0));
  }
  // A stream with more entries than it declares, or a tag twice, is refused; so is one with
  // many entries where only the last two repeat a tag (found by the sorted check).
  const auto directoryOf = [](std::uint64_t declared, const std::vector<std::uint16_t>& tags) {
    std::stringstream bytes;
    WriteVarint(declared, bytes);
    for (std::uint16_t tag : tags) {
      WriteVarint(ncds::detail::EntryKey(tag, false), bytes);
      WriteVarint(1, bytes);
      bytes.put('x');
    }
    WriteVarint(ncds::detail::kDirectoryEndKey, bytes);
    return bytes.str();
  };
  std::vector<std::uint16_t> many(20);
  for (std::uint16_t k = 0; k < many.size(); ++k) many[k] = static_cast<std::uint16_t>(k * 3);
  const auto validity = [](const std::string& bytes, bool nested) {
    std::stringstream in(bytes);
    if (!nested) return InputStreamDirectory(in).IsValid();
    // The same bytes as the entry of an outer directory: read whole from memory.
    std::stringstream outer;
    {
      OutputStreamDirectory dir(outer, 1);
      dir.GetOutput(0) << bytes;
    }
    InputStreamDirectory dir(outer);
    return InputStreamDirectory(*dir.GetInput(0)).IsValid();
  };
  for (bool nested : {false, true}) {
    EXPECT_TRUE(validity(directoryOf(20, many), nested));
    EXPECT_FALSE(validity(directoryOf(19, many), nested));
    EXPECT_FALSE(validity(directoryOf(3, {4, 1, 4}), nested));
    many.back() = many.front();
    EXPECT_FALSE(validity(directoryOf(20, many), nested));
    many.back() = 57;
  }

  // A huge count in a short stream fails at once instead of allocating.
  std::stringstream lie;
  const std::uint32_t huge = 4000000000U;
  WriteFourBytes(&huge, 1, lie);
  lie << std::string(96, 'x');
  std::string text;
  EXPECT_THROW(ReadBinaryString(text, lie), VxStreamError);
  EXPECT_TRUE(text.empty());

  // Directories nested deeper than the bound are refused.
  std::stringstream deep;
  std::vector<std::unique_ptr<OutputStreamDirectory>> levels;
  std::ostream* at = &deep;
  for (int i = 0; i < InputStreamDirectory::kMaxDepth + 2; ++i) {
    levels.push_back(std::make_unique<OutputStreamDirectory>(*at, 1));
    at = &levels.back()->GetOutput(0);
  }
  while (!levels.empty()) levels.pop_back();
  std::function<int(std::istream&)> depthOf = [&](std::istream& is) {
    InputStreamDirectory d(is);
    if (!d.IsValid()) return 0;
    std::istream* inner = d.GetInput(0);
    return inner ? 1 + depthOf(*inner) : 1;
  };
  EXPECT_EQ(depthOf(deep), InputStreamDirectory::kMaxDepth);
}

TEST(StreamFramework, ReferenceCyclesAreWrittenOnce) {
  Drawing a = SampleDrawing();
  Drawing b = SampleDrawing();
  b.name = "b";
  a.partner = &b;
  b.partner = &a;
  const std::string bytes = Write(a);  // must not recurse without end
  Drawing copy;
  EXPECT_TRUE(Read(bytes, copy));
  EXPECT_EQ(copy.name, a.name);
}

namespace {

// Directories inside directories with payloads below and far above the size at which an
// entry streams through to its parent, written in an order that makes inner entries patch
// their lengths after outer entries have passed bytes on.
void WriteNested(std::ostream& os, const std::vector<float>& big) {
  OutputStreamDirectory outer(os, 3);
  WriteToStreamDir(std::string("small"), outer, 0);
  std::ostream& middle = outer.GetOutput(1);
  {
    OutputStreamDirectory inner(middle, 4);
    for (std::uint16_t tag = 0; tag < 3; ++tag) {
      std::ostream& payload = inner.GetOutput(tag);
      const std::uint64_t count = big.size() / (tag + 1);
      WriteEightBytes(&count, 1, payload);
      WriteFourBytes(big.data(), count, payload);
    }
    OutputStreamDirectory innermost(inner.GetOutput(3), 1);
    WriteToStreamDir(std::string("deep"), innermost, 0);
  }
  WriteToStreamDir(std::int32_t{42}, outer, 2);
}

void CheckNested(const std::string& bytes, const std::vector<float>& big) {
  std::istringstream is(bytes);
  InputStreamDirectory outer(is);
  ASSERT_TRUE(outer.IsValid());
  std::string small;
  std::int32_t last = 0;
  EXPECT_TRUE(ReadFromStreamDir(small, outer, 0, true));
  EXPECT_TRUE(ReadFromStreamDir(last, outer, 2, true));
  EXPECT_EQ(small, "small");
  EXPECT_EQ(last, 42);
  InputStreamDirectory inner(*outer.GetInput(1));
  ASSERT_TRUE(inner.IsValid());
  for (std::uint16_t tag = 0; tag < 3; ++tag) {
    std::istream* payload = inner.GetInput(tag);
    ASSERT_NE(payload, nullptr);
    std::uint64_t count = 0;
    ReadEightBytes(&count, 1, *payload);
    ASSERT_EQ(count, big.size() / (tag + 1));
    std::vector<float> back(count);
    ReadFourBytes(back.data(), count, *payload);
    EXPECT_TRUE(std::equal(back.begin(), back.end(), big.begin()));
  }
  InputStreamDirectory innermost(*inner.GetInput(3));
  std::string deep;
  EXPECT_TRUE(ReadFromStreamDir(deep, innermost, 0, true));
  EXPECT_EQ(deep, "deep");
}

}  // namespace

TEST(StreamFramework, SeekableAndUnseekableStreamsReadTheSame) {
  const Drawing original = SampleDrawing();
  PipeBuf pipe;
  std::ostream os(&pipe);
  os << original;
  ASSERT_TRUE(os.good());
  EXPECT_EQ(pipe.bytes, Write(original));

  std::vector<float> big(300 * 1000);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<float>(i % 977) - 99.0F;
  std::stringstream memory;
  WriteNested(memory, big);
  ASSERT_TRUE(memory.good());
  PipeBuf bigPipe;
  std::ostream pipeOs(&bigPipe);
  WriteNested(pipeOs, big);
  ncds::test::TempFile file("nested.bin");
  {
    std::ofstream fileOs(file.path(), std::ios::binary);
    WriteNested(fileOs, big);
    ASSERT_TRUE(fileOs.good());
  }
  std::ifstream fileIs(file.path(), std::ios::binary);
  const std::string fromFile((std::istreambuf_iterator<char>(fileIs)),
                             std::istreambuf_iterator<char>());
  EXPECT_EQ(memory.str().size(), fromFile.size());
  EXPECT_TRUE(memory.str() == fromFile);
  CheckNested(memory.str(), big);
  // Without seeking, large entries are collected whole and get the short header form.
  EXPECT_LT(bigPipe.bytes.size(), memory.str().size());
  CheckNested(bigPipe.bytes, big);
}

// Through the standard file stream and through the framework's own, whose large writes skip
// its buffer and whose position queries do not flush: the bytes must be the same.
TEST(StreamFramework, LargePayloadsStreamThroughFiles) {
  std::vector<float> values(3 * 1000 * 1000);
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i) * 0.5F;
  const auto write = [&values](std::ostream& os) {
    OutputStreamDirectory dir(os, 3);
    WriteToStreamDir(std::string("before"), dir, 0);
    std::ostream& out = dir.GetOutput(1);
    {
      OutputStreamDirectory inner(out, 2);  // a nested entry that spills too
      std::ostream& payload = inner.GetOutput(1);
      const std::uint64_t count = values.size();
      WriteEightBytes(&count, 1, payload);
      ReserveStreamSpace(payload, count * 4);
      for (std::size_t k = 0; k < 3; ++k) {  // one large write, then many small ones
        const std::size_t part = k == 0 ? values.size() / 2 : values.size() / 4;
        const std::size_t at = k == 0 ? 0 : values.size() / 2 + (k - 1) * part;
        if (k == 0) {
          WriteFourBytes(values.data() + at, part, payload);
        } else {
          for (std::size_t i = 0; i < part; ++i) WriteFourBytes(&values[at + i], 1, payload);
        }
      }
      EXPECT_TRUE(inner.Close());
    }
    WriteToStreamDir(std::string("after"), dir, 2);
    return dir.Close();
  };
  ncds::test::TempFile standard("large_payload_std.bin");
  ncds::test::TempFile own("large_payload_own.bin");
  {
    std::ofstream os(standard.path(), std::ios::binary);
    ASSERT_TRUE(write(os));
  }
  {
    OutputFileStream os(own.path());
    ASSERT_TRUE(write(os));
    ASSERT_TRUE(os.close());
  }
  const auto contents = [](const std::string& path) {
    std::ifstream is(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(is), {});
  };
  EXPECT_EQ(contents(standard.path()), contents(own.path()));

  std::ifstream is(own.path(), std::ios::binary);
  InputStreamDirectory dir(is);
  ASSERT_TRUE(dir.IsValid());
  std::string after;
  EXPECT_TRUE(ReadFromStreamDir(after, dir, 2, true));  // tags in any order
  EXPECT_EQ(after, "after");
  std::istream* in = dir.GetInput(1);
  ASSERT_NE(in, nullptr);
  InputStreamDirectory inner(*in);
  std::istream* payload = inner.GetInput(1);
  ASSERT_NE(payload, nullptr);
  std::uint64_t count = 0;
  ReadEightBytes(&count, 1, *payload);
  ASSERT_EQ(count, values.size());
  EXPECT_EQ(StreamRemaining(*payload), count * 4);
  std::vector<float> back(count);
  ReadFourBytes(back.data(), back.size(), *payload);
  EXPECT_EQ(back, values);
  EXPECT_EQ(StreamRemaining(*payload), 0U);

  OutputFileStream nowhere("/nonexistent-folder/file.bin");
  EXPECT_FALSE(nowhere.is_open());
  EXPECT_TRUE(nowhere.fail());
  nowhere << NCDataVector<float>(3);
  EXPECT_FALSE(nowhere.close());
}

TEST(StreamFramework, DamagedStreamsFailCleanly) {
  Drawing original = SampleDrawing();
  Drawing partner = SampleDrawing();
  original.partner = &partner;
  const std::string valid = Write(original);
  std::size_t accepted = 0;
  ncds::test::ForEachCorruption(valid, [&](const std::string& bytes) {
    Drawing copy;
    if (Read(bytes, copy)) ++accepted;  // a flip inside a payload may still read
  });
  // Every truncation must fail; only some byte flips inside payloads can still read.
  EXPECT_LT(accepted, valid.size());
  for (std::size_t length = 0; length < valid.size(); ++length) {
    Drawing copy;
    EXPECT_FALSE(Read(valid.substr(0, length), copy)) << "truncated at " << length;
  }
}

namespace {
class Registered : public Shape {};
const FactoryRegistration<Registered> kRegistered("Registered");
const FactoryRegistration<Shape> kDuplicate("Registered");  // ignored: the name is taken
}  // namespace

TEST(StreamFramework, FactoryRepositoryCreatesRegisteredClasses) {
  auto& repository = OBJCREAT_Details::FactoryRepositoryBase::Instance();
  const auto* factory = repository.GetFactory("Registered");
  ASSERT_NE(factory, nullptr);
  std::unique_ptr<VStreamBase> made = factory->Create();
  EXPECT_NE(dynamic_cast<Registered*>(made.get()), nullptr);
  EXPECT_EQ(repository.GetRealName(typeid(Registered)), "Registered");
  EXPECT_EQ(repository.GetRealName("Registered"), "Registered");
  EXPECT_EQ(repository.GetRealName(typeid(Drawing)), "");
  EXPECT_EQ(repository.GetFactory("Unregistered"), nullptr);

  // Polymorphic storage: the name, then the object.
  Registered original;
  original.name = "made by the factory";
  std::stringstream ss;
  WriteBinaryString(repository.GetRealName(typeid(original)), ss);
  ss << original;
  std::string name;
  ReadBinaryString(name, ss);
  std::unique_ptr<VStreamBase> back = repository.GetFactory(name)->Create();
  ASSERT_TRUE(ss >> *back);
  EXPECT_EQ(dynamic_cast<Registered&>(*back).name, "made by the factory");
}
