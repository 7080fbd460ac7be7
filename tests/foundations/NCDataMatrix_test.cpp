#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using Matrix = NCDataMatrix<float>;
using Vector = NCDataVector<float>;
using IndexVector = NCIntegralVector<int, -99>;
using Model = std::vector<std::vector<float>>;  // [row][column], the obvious layout
constexpr float kMissing = -99.0F;

using ncds::test::NonSeekableBuf;

IndexVector Of(std::initializer_list<int> values) {
  IndexVector v;
  for (int value : values) v.push_back(value);
  return v;
}

Matrix FromModel(const Model& model, std::size_t columns) {
  Matrix m(model.size(), columns);
  for (std::size_t i = 0; i < model.size(); ++i) {
    for (std::size_t j = 0; j < columns; ++j) m(i, j) = model[i][j];
  }
  return m;
}

void ExpectSame(const Matrix& m, const Model& model, std::size_t columns) {
  ASSERT_EQ(m.SizeRows(), model.size());
  ASSERT_EQ(m.SizeColumns(), columns);
  for (std::size_t j = 0; j < columns; ++j) {
    const float* column = m.ColumnData(j);
    for (std::size_t i = 0; i < model.size(); ++i) {
      ASSERT_EQ(column[i], model[i][j]) << "row " << i << " column " << j;
    }
  }
}

// Same shape and the same bits in every cell.
bool Identical(const Matrix& a, const Matrix& b) {
  if (a.SizeRows() != b.SizeRows() || a.SizeColumns() != b.SizeColumns()) return false;
  for (std::size_t j = 0; j < a.SizeColumns() && a.SizeRows() != 0; ++j) {
    if (std::memcmp(a.ColumnData(j), b.ColumnData(j), a.SizeRows() * sizeof(float)) != 0) {
      return false;
    }
  }
  return true;
}

std::string Bytes(const Matrix& m) {
  std::ostringstream os;
  os << m;
  EXPECT_TRUE(os.good());
  return os.str();
}

bool ReadInto(const std::string& bytes, Matrix& m) {
  std::istringstream is(bytes);
  return static_cast<bool>(is >> m);
}

// Magic length byte, "NCDataMatrix" and version; then rows and columns.
constexpr std::size_t kShapeOffset = 1 + 12 + 2;
// Up to the cells, in a stream that starts with the matrix: the padding count and 32 bytes
// of padding put the cells at offset 64.
constexpr std::size_t kHeaderBytes = 64;

// Random edits, each applied to the matrix and to a plain row-major model: the in-place
// paths (row insertion into spare room, compaction, reordering) must agree with the model.
TEST(NCDataMatrix, EditsAgreeWithPlainModel) {
  std::mt19937 rng(7);
  auto pick = [&rng](std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n)(rng);
  };
  float next = 1.0F;
  Model model;
  std::size_t columns = 0;
  Matrix m;
  for (int step = 0; step < 600; ++step) {
    const std::size_t rows = model.size();
    switch (pick(10)) {
      case 0: {  // InsertRows
        const std::size_t at = pick(rows), count = pick(4);
        m.InsertRows(at, count);
        model.insert(model.begin() + at, count, std::vector<float>(columns, kMissing));
        break;
      }
      case 1: {  // InsertColumn with values (a 0 x 0 matrix takes the column's length)
        const std::size_t at = pick(columns);
        const std::size_t length = rows == 0 && columns == 0 ? pick(5) : rows;
        Vector column(length);
        if (model.empty()) model.assign(length, std::vector<float>(columns));
        for (std::size_t i = 0; i < length; ++i) {
          column[i] = next++;
          model[i].insert(model[i].begin() + at, column[i]);
        }
        m.InsertColumn(at, column);
        ++columns;
        break;
      }
      case 2: {  // InsertRow with values
        Vector row(columns);
        for (float& cell : row) cell = next++;
        const std::size_t at = pick(rows);
        m.InsertRow(at, row);
        model.insert(model.begin() + at, std::vector<float>(row.begin(), row.end()));
        break;
      }
      case 3: {  // RemoveRows, bulk: every row with probability 1/3
        IndexVector remove;
        for (std::size_t i = 0; i < rows; ++i) {
          if (pick(2) == 0) remove.push_back(static_cast<int>(i));
        }
        m.RemoveRows(remove);
        for (std::size_t k = remove.size(); k-- > 0;) model.erase(model.begin() + remove[k]);
        break;
      }
      case 4: {  // RemoveRows / RemoveColumns, a range
        const std::size_t at = pick(rows), count = pick(rows - at);
        m.RemoveRows(at, count);
        model.erase(model.begin() + at, model.begin() + at + count);
        const std::size_t c = pick(columns), n = pick(columns - c);
        m.RemoveColumns(c, n);
        for (auto& row : model) row.erase(row.begin() + c, row.begin() + c + n);
        columns -= n;
        break;
      }
      case 5: {  // ReduceRows, shorter or longer than before, with repeats
        IndexVector order;
        const std::size_t length = rows == 0 ? 0 : pick(rows + 3);
        Model reordered;
        for (std::size_t i = 0; i < length; ++i) {
          order.push_back(static_cast<int>(pick(rows - 1)));
          reordered.push_back(model[order[i]]);
        }
        m.ReduceRows(order);
        model = reordered;
        break;
      }
      case 6: {  // ReduceColumns
        IndexVector keep;
        const std::size_t length = columns == 0 ? 0 : pick(columns + 1);
        for (std::size_t k = 0; k < length; ++k)
          keep.push_back(static_cast<int>(pick(columns - 1)));
        for (auto& row : model) {
          std::vector<float> kept;
          for (const int j : keep) kept.push_back(row[j]);
          row = kept;
        }
        m.ReduceColumns(keep);
        columns = length;
        break;
      }
      case 7: {  // Resize
        const std::size_t r = pick(12), c = pick(6);
        m.Resize(r, c);
        model.resize(r, std::vector<float>(columns, kMissing));
        for (auto& row : model) row.resize(c, kMissing);
        columns = c;
        break;
      }
      case 8: {  // ReserveColumns, then ConcatColumns of a copy (or of itself)
        m.ReserveColumns(columns + pick(4));
        if (pick(1) == 0) {
          m.ConcatColumns(m);
        } else {
          m.ConcatColumns(Matrix(m));
        }
        for (auto& row : model) row.insert(row.end(), row.begin(), row.end());
        columns *= 2;
        break;
      }
      case 9: {  // ReserveRows, then rows appended into the room (or past it)
        m.ReserveRows(rows + pick(8));
        const std::size_t count = pick(5);
        m.InsertRows(rows, count);
        model.insert(model.end(), count, std::vector<float>(columns, kMissing));
        break;
      }
      default: {  // SetColumn
        if (columns == 0) break;
        const std::size_t j = pick(columns - 1);
        std::vector<float> values(rows);
        for (std::size_t i = 0; i < rows; ++i) model[i][j] = values[i] = next++;
        m.SetColumn(j, values.data());
        break;
      }
    }
    if (columns > 40) {  // keep the matrix small
      m.RemoveColumns(20, columns - 20);
      for (auto& row : model) row.resize(20);
      columns = 20;
    }
    ASSERT_NO_FATAL_FAILURE(ExpectSame(m, model, columns)) << "after step " << step;
    // Spare rows never reach the stream: the bytes are those of a packed copy.
    if (step % 50 == 0) {
      ASSERT_EQ(Bytes(m), Bytes(Matrix(m))) << "after step " << step;
      Matrix same(m.SizeRows(), m.SizeColumns());
      same = m;  // copied into its own cells, from columns with spare rows
      ASSERT_TRUE(Identical(same, m)) << "after step " << step;
    }
  }
}

TEST(NCDataMatrix, BulkRowRemovalRefusesBadListsUnchanged) {
  Model model;
  for (int i = 0; i < 6; ++i) model.push_back({float(i), float(10 + i)});
  Matrix m = FromModel(model, 2);
  for (const IndexVector& bad :
       {Of({1, 1}), Of({3, 2}), Of({-1}), Of({6}), Of({0, 5, 6}), Of({-99})}) {
    EXPECT_THROW(m.RemoveRows(bad), InvalidArgument);
    ExpectSame(m, model, 2);
  }
  EXPECT_THROW(m.ReduceRows(Of({0, 6})), InvalidArgument);
  EXPECT_THROW(m.ReduceColumns(Of({2})), InvalidArgument);
  EXPECT_THROW(m.RemoveRows(5, 2), InvalidArgument);
  EXPECT_THROW(m.InsertRow(0, Vector(3)), InvalidArgument);
  EXPECT_THROW(m.InsertColumn(0, Vector(5)), InvalidArgument);
  EXPECT_THROW(m.InsertColumns(3, 1), InvalidArgument);
  EXPECT_THROW(m.SetColumn(2, nullptr), InvalidArgument);
  EXPECT_THROW(m.ConcatColumns(Matrix(5, 1)), InvalidArgument);
  ExpectSame(m, model, 2);

  m.RemoveRows(IndexVector());
  ExpectSame(m, model, 2);
  m.RemoveRows(Of({0, 5}));
  ExpectSame(m, Model(model.begin() + 1, model.end() - 1), 2);
  m.RemoveRows(Of({0, 1, 2, 3}));
  EXPECT_EQ(m.SizeRows(), 0u);
  EXPECT_EQ(m.SizeColumns(), 2u);
  EXPECT_EQ(m.ColumnData(0), nullptr);
}

// Removal patterns that meet both copy paths: short runs copied in blocks that spill past
// their end, long runs, runs at the very end of the buffer and the first removals, where kept
// rows still trail their sources by less than a block.
TEST(NCDataMatrix, BulkRowRemovalKeepsEveryRunIntact) {
  constexpr std::size_t kRows = 700;
  constexpr std::size_t kColumns = 5;
  Model model(kRows, std::vector<float>(kColumns));
  for (std::size_t i = 0; i < kRows; ++i) {
    for (std::size_t j = 0; j < kColumns; ++j) model[i][j] = float(i * kColumns + j);
  }
  std::mt19937 rng(3);
  const std::vector<std::function<bool(std::size_t)>> patterns = {
      [](std::size_t i) { return i % 9 == 4; },             // runs of 8
      [](std::size_t i) { return i % 70 == 0 || i == 3; },  // long runs
      [](std::size_t i) { return i == kRows - 2; },         // one row near the end
      [](std::size_t i) { return i < 3 || i % 2 == 1; },    // many tiny runs
      [&rng](std::size_t) { return rng() % 5 == 0; },       // scattered
      [](std::size_t i) { return i >= kRows - 9 && i != kRows - 1; }};
  for (std::size_t p = 0; p < patterns.size(); ++p) {
    Matrix m = FromModel(model, kColumns);
    IndexVector remove;
    Model kept;
    for (std::size_t i = 0; i < kRows; ++i) {
      if (patterns[p](i)) {
        remove.push_back(static_cast<int>(i));
      } else {
        kept.push_back(model[i]);
      }
    }
    m.RemoveRows(remove);
    SCOPED_TRACE(p);
    ExpectSame(m, kept, kColumns);
  }
}

TEST(NCDataMatrix, ReservedColumnsAppendWithoutMoving) {
  // 6000 x 64 cells: a buffer on huge pages, its last one taken whole.
  Matrix m(6000, 1, 1.0F);
  m.ReserveColumns(64);
  EXPECT_GE(m.CapacityColumns(), 64u);
  const float* first = m.ColumnData(0);
  for (int j = 1; j < 64; ++j) m.InsertColumn(m.SizeColumns(), Vector(6000, float(j)));
  EXPECT_EQ(m.ColumnData(0), first);  // no reallocation
  EXPECT_EQ(m(5999, 63, 0.0F), 63.0F);

  // The reservation survives added rows; without one, appending grows geometrically.
  m.InsertRows(0, 10);
  EXPECT_GE(m.CapacityColumns(), 64u);
  Matrix grown(10, 0);
  std::size_t moves = 0;
  const float* last = nullptr;
  for (int j = 0; j < 1000; ++j) {
    grown.InsertColumns(grown.SizeColumns(), 1);
    if (grown.ColumnData(0) != last) ++moves;
    last = grown.ColumnData(0);
  }
  EXPECT_LT(moves, 20u);

  // Rows appended in small steps move the columns a logarithmic number of times, and so do
  // columns appended after them; reserved rows are not moved at all.
  Matrix tall(0, 3);
  moves = 0;
  last = nullptr;
  for (int step = 0; step < 1000; ++step) {
    tall.InsertRows(tall.SizeRows(), 7);
    tall(tall.SizeRows() - 1, 2) = float(step);
    if (tall.ColumnData(0) != last) ++moves;
    last = tall.ColumnData(0);
    if (step % 100 == 0) tall.InsertColumns(tall.SizeColumns(), 1);
  }
  EXPECT_LT(moves, 40u);
  EXPECT_EQ(tall.SizeRows(), 7000u);
  EXPECT_EQ(tall(6999, 2, 0.0F), 999.0F);
  EXPECT_EQ(tall(6999, 3, 0.0F), kMissing);
  Matrix reserved(5, 2, 1.0F);
  reserved.ReserveRows(500);
  EXPECT_EQ(reserved.CapacityRows(), 500u);
  const float* start = reserved.ColumnData(1);
  reserved.InsertRows(5, 495);
  EXPECT_EQ(reserved.ColumnData(1), start);
  EXPECT_EQ(reserved(4, 1, 0.0F), 1.0F);
  EXPECT_EQ(reserved(5, 1, 0.0F), kMissing);

  // Checked reads and column access out of range.
  EXPECT_EQ(m(6010, 0, -5.0F), -5.0F);
  EXPECT_EQ(m(0, 64, -5.0F), -5.0F);
  EXPECT_EQ(m(0, 0, -5.0F), kMissing);  // an inserted row
  EXPECT_EQ(m.ColumnData(64), nullptr);
  EXPECT_TRUE(m.GetColumn(64).empty());
  const Vector column = m.GetColumn(3);
  ASSERT_EQ(column.size(), 6010u);
  EXPECT_EQ(column[6009], 3.0F);
  EXPECT_EQ(column[9], kMissing);
  EXPECT_EQ(column[10], 3.0F);
}

TEST(NCDataMatrix, CopiesAndProducts) {
  Matrix a(2, 3, 1.0F);
  Matrix b = a;
  b(0, 0) = 5.0F;
  EXPECT_EQ(a(0, 0, 0.0F), 1.0F);
  a = b;
  b(0, 0) = 6.0F;
  EXPECT_EQ(a(0, 0, 0.0F), 5.0F);
  a = static_cast<const Matrix&>(a);  // self-assignment keeps the cells
  EXPECT_EQ(a(0, 0, 0.0F), 5.0F);

  // [1 2 3; 4 -99 6] times weights.
  Matrix m(2, 3);
  const float c0[] = {1, 4}, c1[] = {2, kMissing}, c2[] = {3, 6};
  m.SetColumn(0, c0);
  m.SetColumn(1, c1);
  m.SetColumn(2, c2);
  Vector w(3);
  w[0] = 1;
  w[1] = 10;
  w[2] = 100;
  const Vector product = m * w;
  EXPECT_EQ(product[0], 321.0F);
  EXPECT_EQ(product[1], kMissing);
  w[1] = 0;  // a column weighted 0 takes no part, missing cells and all
  EXPECT_EQ((m * w)[1], 604.0F);
  w[2] = kMissing;
  EXPECT_EQ(m * w, Vector(2, kMissing));
  EXPECT_THROW(m * Vector(2), InvalidArgument);
  EXPECT_TRUE((Matrix() * Vector()).empty());
}

TEST(NCDataMatrix, SortingRowsByAColumnMovesWholeRows) {
  Model model = {{3, 30}, {1, 10}, {kMissing, 0}, {2, 20}};
  Matrix m = FromModel(model, 2);
  Vector key = m.GetColumn(0);
  m.ReduceRows(key.Sort(true));
  ExpectSame(m, {{1, 10}, {2, 20}, {3, 30}, {kMissing, 0}}, 2);
}

TEST(NCDataMatrix, StreamRoundTrips) {
  Matrix slack(3, 2, 1.5F);
  slack.ReserveColumns(50);  // spare room after the used columns is not written
  slack(2, 1) = kMissing;
  for (const Matrix& m : {Matrix(), Matrix(0, 5), Matrix(5, 0), Matrix(1, 1, 2.0F), slack}) {
    const std::string bytes = Bytes(m);
    EXPECT_EQ(bytes.size(), kHeaderBytes + 4 * m.SizeRows() * m.SizeColumns());
    Matrix read(4, 4, 7.0F);
    ASSERT_TRUE(ReadInto(bytes, read));
    EXPECT_TRUE(Identical(read, m));
    read = Matrix(400, 400);  // far larger: its buffer is released, not reused
    ASSERT_TRUE(ReadInto(bytes, read));
    EXPECT_TRUE(Identical(read, m));
  }

  // The cells start on a 64-byte boundary of the stream, whatever comes before the matrix.
  for (std::size_t prefix = 0; prefix < 70; prefix += 3) {
    std::ostringstream os(std::string(prefix, 'p'), std::ios::ate);
    os << slack;
    EXPECT_EQ((os.str().size() - 4 * 6) % 64, 0u) << prefix;
    std::istringstream is(os.str());
    is.ignore(static_cast<std::streamsize>(prefix));
    Matrix read;
    ASSERT_TRUE(is >> read);
    EXPECT_TRUE(Identical(read, slack));
  }

  // Beside other entries of a directory.
  std::stringstream ss;
  {
    OutputStreamDirectory dir(ss, 2);
    WriteToStreamDir(slack, dir, 0);
    WriteToStreamDir(slack.GetColumn(1), dir, 1);
  }
  Matrix nested;
  Vector column;
  InputStreamDirectory dir(ss);
  EXPECT_TRUE(ReadFromStreamDir(nested, dir, 0, true));
  EXPECT_TRUE(ReadFromStreamDir(column, dir, 1, true));
  EXPECT_TRUE(Identical(nested, slack));
  EXPECT_EQ(column, slack.GetColumn(1));

  // More cells than one read step, from a stream that cannot tell its size.
  Matrix big(3000, 500);
  for (std::size_t j = 0; j < 500; ++j) big(j, j) = float(j);
  NonSeekableBuf buf(Bytes(big));
  std::istream unseekable(&buf);
  Matrix read;
  ASSERT_TRUE(unseekable >> read);
  EXPECT_TRUE(Identical(read, big));
}

TEST(NCDataMatrix, DamagedStreamsLeaveTheMatrixEmpty) {
  Matrix valid(7, 5);
  for (std::size_t j = 0; j < 5; ++j) {
    for (std::size_t i = 0; i < 7; ++i) valid(i, j) = float(i * 10 + j);
  }
  ncds::test::ForEachCorruption(Bytes(valid), [&](const std::string& bytes) {
    Matrix read(2, 2, 3.0F);
    if (!ReadInto(bytes, read)) {
      EXPECT_EQ(read.SizeRows(), 0u);
      EXPECT_EQ(read.SizeColumns(), 0u);
      return;
    }
    Matrix again;
    ASSERT_TRUE(ReadInto(Bytes(read), again));
    EXPECT_TRUE(Identical(again, read));
  });

  // Shapes the bytes cannot back, or beyond int indexing, fail at once.
  auto withShape = [](std::uint64_t rows, std::uint64_t columns) {
    std::string bytes = Bytes(Matrix(2, 2));
    const std::uint64_t shape[2] = {rows, columns};
    std::ostringstream os;
    WriteEightBytes(shape, 2, os);
    bytes.replace(kShapeOffset, 16, os.str());
    return bytes;
  };
  for (const auto& [rows, columns] : std::vector<std::pair<std::uint64_t, std::uint64_t>>{
           {4000000000ull, 1}, {1ull << 31, 0}, {0, 1ull << 40}, {65536, 65536}, {3, 2}}) {
    Matrix read(2, 2);
    EXPECT_FALSE(ReadInto(withShape(rows, columns), read)) << rows << " x " << columns;
    NonSeekableBuf buf(withShape(rows, columns));
    std::istream unseekable(&buf);
    EXPECT_FALSE(unseekable >> read);
    EXPECT_EQ(read.SizeColumns(), 0u);
  }
}

}  // namespace
