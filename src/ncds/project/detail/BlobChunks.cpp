#include "ncds/project/detail/BlobChunks.h"

#include <libdeflate.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <future>
#include <limits>

namespace ncds::detail {
namespace {

// Runs of chunks from this size on get their checksums from another thread.
constexpr std::size_t kParallelCrcBytes = std::size_t{1} << 20;

// The crc32 of zlib and gzip.
std::uint32_t Crc(const char* data, std::size_t size) {
  return static_cast<std::uint32_t>(libdeflate_crc32(0, data, size));
}

// An open handle on one chunk's bytes, closed when it goes.
class ChunkBlob {
 public:
  ChunkBlob(SqliteDatabase& db, std::int64_t row, bool write) : mDb(db) {
    mCode = sqlite3_blob_open(db.Handle(), "main", "ncds_blob", "data", row, write ? 1 : 0, &mBlob);
  }
  ~ChunkBlob() { sqlite3_blob_close(mBlob); }
  ChunkBlob(const ChunkBlob&) = delete;
  ChunkBlob& operator=(const ChunkBlob&) = delete;

  bool Read(char* dst, std::size_t size, std::size_t offset) {
    if (mCode == SQLITE_OK) {
      mCode = sqlite3_blob_read(mBlob, dst, static_cast<int>(size), static_cast<int>(offset));
    }
    return mCode == SQLITE_OK;
  }
  void Write(const char* src, std::size_t size, std::size_t offset) {
    if (mCode == SQLITE_OK) {
      mCode = sqlite3_blob_write(mBlob, src, static_cast<int>(size), static_cast<int>(offset));
    }
    mDb.Check(mCode);
  }
  std::size_t Size() const {
    return mCode == SQLITE_OK ? static_cast<std::size_t>(sqlite3_blob_bytes(mBlob)) : 0;
  }

 private:
  SqliteDatabase& mDb;
  sqlite3_blob* mBlob = nullptr;
  int mCode = SQLITE_OK;
};

}  // namespace

void CreateChunkTable(SqliteDatabase& db) {
  db.Execute(
      "CREATE TABLE IF NOT EXISTS ncds_blob(id INTEGER PRIMARY KEY, data BLOB NOT NULL);"
      "CREATE TABLE IF NOT EXISTS ncds_chunk(stream TEXT NOT NULL, seq INTEGER NOT NULL, "
      "crc INTEGER NOT NULL, blob INTEGER NOT NULL, PRIMARY KEY(stream, seq)) WITHOUT ROWID");
}

void DetachChunks(SqliteDatabase& db, const std::string& name, std::vector<std::int64_t>& blobs) {
  SqliteStatement rows(db, "SELECT blob FROM ncds_chunk WHERE stream = ?");
  rows.Bind(1, name);
  while (rows.Step()) blobs.push_back(rows.Int(0));
  SqliteStatement chunks(db, "DELETE FROM ncds_chunk WHERE stream = ?");
  chunks.Bind(1, name).Step();
}

void DeleteBlobs(SqliteDatabase& db, const std::vector<std::int64_t>& blobs) {
  // A stream's rows are mostly consecutive: each run goes in one statement.
  std::vector<std::int64_t> rows(blobs);
  std::sort(rows.begin(), rows.end());
  SqliteStatement remove(db, "DELETE FROM ncds_blob WHERE id BETWEEN ? AND ?");
  for (std::size_t first = 0, last = 0; first < rows.size(); first = ++last) {
    while (last + 1 < rows.size() && rows[last + 1] <= rows[last] + 1) ++last;
    remove.Reset();
    remove.Bind(1, rows[first]).Bind(2, rows[last]).Step();
  }
}

void DeleteChunks(SqliteDatabase& db, const std::string& name) {
  std::vector<std::int64_t> blobs;
  DetachChunks(db, name, blobs);
  DeleteBlobs(db, blobs);
}

bool HasChunks(SqliteDatabase& db, const std::string& name) {
  SqliteStatement any(db, "SELECT 1 FROM ncds_chunk WHERE stream = ? LIMIT 1");
  return any.Bind(1, name).Step();
}

bool ReadStreamBytes(SqliteDatabase& db, const std::string& name, std::string& bytes) {
  ChunkReader chunks(db, name);
  const auto size = static_cast<std::streamsize>(chunks.Size());
  bytes.resize(static_cast<std::size_t>(size));
  return size > 0 && chunks.sgetn(bytes.data(), size) == size && !chunks.IsDamaged();
}

// ---- ChunkWriter ----

ChunkWriter::ChunkWriter(SqliteDatabase& db, std::string name, std::size_t chunkSize,
                         StoredCallback onStored)
    : mDb(db),
      mName(std::move(name)),
      mChunkSize(std::clamp<std::size_t>(chunkSize, 1, std::numeric_limits<int>::max())),
      mOnStored(std::move(onStored)),
      mBuffer(mChunkSize),
      mInsert(db, "INSERT INTO ncds_blob(data) VALUES(?)") {
  setp(mBuffer.data(), mBuffer.data() + mBuffer.size());
}

std::size_t ChunkWriter::BufferedEnd() const {
  return mPatching ? mHighWater : std::max(mHighWater, static_cast<std::size_t>(pptr() - pbase()));
}

std::uint64_t ChunkWriter::Size() const { return mStored + BufferedEnd(); }

void ChunkWriter::StoreChunk(const char* data, std::size_t size) {
  StoreRow(data, size);
  mChunks.back().crc = Crc(data, size);
}

void ChunkWriter::StoreRow(const char* data, std::size_t size) {
  mInsert.Reset();
  mInsert.BindBlob(1, data, size).Step();
  mChunks.push_back({sqlite3_last_insert_rowid(mDb.Handle()), 0, mStored});
  mStored += size;
  if (mOnStored) mOnStored(size);
}

void ChunkWriter::StoreChunks(const char* data, std::size_t count) {
  // The checksums of a long run are made on another core while SQLite copies the bytes: on
  // their own they would cost about a third of writing the bytes to the file.
  const std::size_t first = mChunks.size();
  const std::size_t chunkSize = mChunkSize;
  std::future<std::vector<std::uint32_t>> crcs;
  if (count * chunkSize >= kParallelCrcBytes) {
    crcs = std::async(std::launch::async, [data, count, chunkSize] {
      std::vector<std::uint32_t> result(count);
      for (std::size_t k = 0; k < count; ++k) result[k] = Crc(data + k * chunkSize, chunkSize);
      return result;
    });
  }
  for (std::size_t k = 0; k < count; ++k) StoreRow(data + k * chunkSize, chunkSize);
  if (crcs.valid()) {
    const std::vector<std::uint32_t> made = crcs.get();
    for (std::size_t k = 0; k < count; ++k) mChunks[first + k].crc = made[k];
  } else {
    for (std::size_t k = 0; k < count; ++k) {
      mChunks[first + k].crc = Crc(data + k * chunkSize, chunkSize);
    }
  }
}

void ChunkWriter::StoreFullBuffer() {
  StoreChunk(mBuffer.data(), mBuffer.size());
  mHighWater = 0;
  setp(mBuffer.data(), mBuffer.data() + mBuffer.size());
}

std::streamsize ChunkWriter::xsputn(const char* s, std::streamsize n) {
  if (mClosed || n <= 0) return 0;
  auto left = static_cast<std::size_t>(n);
  if (mPatching) {
    // Below the stored chunks the bytes wait as patches; from there on they go to the buffer,
    // but not past what it holds.
    if (mPatchPosition < mStored) {
      const auto below =
          static_cast<std::size_t>(std::min<std::uint64_t>(left, mStored - mPatchPosition));
      if (!mPatches.empty() &&
          mPatches.back().offset + mPatches.back().bytes.size() == mPatchPosition) {
        mPatches.back().bytes.append(s, below);
      } else {
        mPatches.push_back({mPatchPosition, std::string(s, below)});
      }
      mPatchPosition += below;
      s += below;
      left -= below;
      if (left == 0) return n;  // all below the stored chunks: the buffer is not reached
    }
    const std::size_t inBuffer =
        std::min<std::size_t>(left, mHighWater - (mPatchPosition - mStored));
    std::memcpy(mBuffer.data() + (mPatchPosition - mStored), s, inBuffer);
    mPatchPosition += inBuffer;
    return n - static_cast<std::streamsize>(left - inBuffer);
  }
  while (left > 0) {
    // Large writes (a matrix) are stored straight from the caller's memory: what the buffer
    // holds goes first as a shorter chunk, so that those bytes are never copied here.
    if (left >= mChunkSize && static_cast<std::size_t>(pptr() - pbase()) >= mHighWater) {
      if (pptr() > pbase()) {
        StoreChunk(mBuffer.data(), static_cast<std::size_t>(pptr() - pbase()));
        mHighWater = 0;
        setp(mBuffer.data(), mBuffer.data() + mBuffer.size());
      }
      const std::size_t count = left / mChunkSize;
      StoreChunks(s, count);
      s += count * mChunkSize;
      left -= count * mChunkSize;
      continue;
    }
    const std::size_t room = static_cast<std::size_t>(epptr() - pptr());
    const std::size_t take = std::min(room, left);
    std::memcpy(pptr(), s, take);
    pbump(static_cast<int>(take));
    s += take;
    left -= take;
    if (pptr() == epptr()) StoreFullBuffer();
  }
  return n;
}

ChunkWriter::pos_type ChunkWriter::seekoff(off_type off, std::ios_base::seekdir dir,
                                           std::ios_base::openmode which) {
  if (!(which & std::ios_base::out)) return pos_type(off_type(-1));
  const std::uint64_t current =
      mPatching ? mPatchPosition : mStored + static_cast<std::uint64_t>(pptr() - pbase());
  const std::uint64_t base = dir == std::ios_base::beg   ? 0
                             : dir == std::ios_base::cur ? current
                                                         : Size();
  return seekpos(pos_type(static_cast<off_type>(base) + off), which);
}

ChunkWriter::pos_type ChunkWriter::seekpos(pos_type pos, std::ios_base::openmode which) {
  const auto target = static_cast<off_type>(pos);
  if (!(which & std::ios_base::out) || mClosed || target < 0 ||
      static_cast<std::uint64_t>(target) > Size()) {
    return pos_type(off_type(-1));
  }
  mHighWater = BufferedEnd();
  const auto position = static_cast<std::uint64_t>(target);
  if (position >= mStored) {
    mPatching = false;
    setp(mBuffer.data(), mBuffer.data() + mBuffer.size());
    pbump(static_cast<int>(position - mStored));
  } else {
    // Every write now goes through xsputn, which keeps it as a patch.
    mPatching = true;
    mPatchPosition = position;
    setp(nullptr, nullptr);
  }
  return pos;
}

void ChunkWriter::Close(std::vector<std::int64_t>* replaced) {
  if (mClosed) return;
  const std::size_t end = BufferedEnd();
  mClosed = true;
  setp(nullptr, nullptr);
  // An empty stream still gets its (empty) chunk, so that it exists.
  if (end > 0 || mChunks.empty()) StoreChunk(mBuffer.data(), end);
  ApplyPatches();

  if (replaced) {
    DetachChunks(mDb, mName, *replaced);
  } else {
    DeleteChunks(mDb, mName);
  }
  SqliteStatement add(mDb, "INSERT INTO ncds_chunk(stream, seq, crc, blob) VALUES(?, ?, ?, ?)");
  for (std::size_t seq = 0; seq < mChunks.size(); ++seq) {
    add.Reset();
    add.Bind(1, mName)
        .Bind(2, static_cast<std::int64_t>(seq))
        .Bind(3, static_cast<std::int64_t>(mChunks[seq].crc))
        .Bind(4, mChunks[seq].row)
        .Step();
  }
}

void ChunkWriter::ApplyPatches() {
  std::vector<std::size_t> touched;
  for (const Patch& patch : mPatches) {
    std::uint64_t offset = patch.offset;
    std::size_t done = 0;
    while (done < patch.bytes.size()) {
      // The last chunk that starts at or before the offset; chunks differ in size.
      const auto it = std::upper_bound(
          mChunks.begin(), mChunks.end(), offset,
          [](std::uint64_t position, const StoredChunk& c) { return position < c.offset; });
      const auto chunk = static_cast<std::size_t>(it - mChunks.begin()) - 1;
      const auto within = static_cast<std::size_t>(offset - mChunks[chunk].offset);
      const std::uint64_t chunkEnd =
          chunk + 1 < mChunks.size() ? mChunks[chunk + 1].offset : mStored;
      const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(
          patch.bytes.size() - done, chunkEnd - mChunks[chunk].offset - within));
      ChunkBlob(mDb, mChunks[chunk].row, true).Write(patch.bytes.data() + done, n, within);
      touched.push_back(chunk);
      offset += n;
      done += n;
    }
  }
  std::sort(touched.begin(), touched.end());
  touched.erase(std::unique(touched.begin(), touched.end()), touched.end());
  std::vector<char> bytes;
  for (const std::size_t chunk : touched) {
    ChunkBlob blob(mDb, mChunks[chunk].row, false);
    bytes.resize(blob.Size());
    if (!blob.Read(bytes.data(), bytes.size(), 0)) mDb.Fail(SQLITE_IOERR);
    mChunks[chunk].crc = Crc(bytes.data(), bytes.size());
  }
  mPatches.clear();
}

// ---- ChunkReader ----

ChunkReader::ChunkReader(SqliteDatabase& db, std::string name) : mDb(db), mName(std::move(name)) {
  SqliteStatement list(db,
                       "SELECT blob, seq, crc, length(data) FROM ncds_chunk JOIN ncds_blob ON "
                       "id = blob WHERE stream = ? ORDER BY seq");
  list.Bind(1, mName);
  while (list.Step()) {
    // A gap in the numbering means a chunk is lost: the stream ends before it.
    if (list.Int(1) != static_cast<std::int64_t>(mChunks.size())) {
      mDamaged = true;
      break;
    }
    const Chunk chunk{list.Int(0), static_cast<std::uint32_t>(list.Int(2)), mSize,
                      static_cast<std::size_t>(list.Int(3))};
    mChunks.push_back(chunk);
    mSize += chunk.size;
  }
}

std::uint64_t ChunkReader::Position() const {
  return mBufferValid ? mChunks[mLoaded].offset + static_cast<std::uint64_t>(gptr() - eback())
                      : mPosition;
}

bool ChunkReader::ReadChunk(std::size_t index, char* dst) {
  const Chunk& chunk = mChunks[index];
  ChunkBlob blob(mDb, chunk.row, false);
  if (!blob.Read(dst, chunk.size, 0) || Crc(dst, chunk.size) != chunk.crc) {
    mDamaged = true;
    return false;
  }
  return true;
}

bool ChunkReader::Load(std::uint64_t position) {
  if (mDamaged || position >= mSize) return false;
  // The last chunk that starts at or before the position.
  const auto it =
      std::upper_bound(mChunks.begin(), mChunks.end(), position,
                       [](std::uint64_t p, const Chunk& chunk) { return p < chunk.offset; });
  const auto index = static_cast<std::size_t>(it - mChunks.begin()) - 1;
  const Chunk& chunk = mChunks[index];
  mBufferValid = false;
  setg(nullptr, nullptr, nullptr);
  mPosition = position;
  mBuffer.resize(chunk.size);
  if (!ReadChunk(index, mBuffer.data())) return false;
  mLoaded = index;
  mBufferValid = true;
  setg(mBuffer.data(), mBuffer.data() + (position - chunk.offset), mBuffer.data() + chunk.size);
  return true;
}

ChunkReader::int_type ChunkReader::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  if (!Load(Position())) return traits_type::eof();
  return traits_type::to_int_type(*gptr());
}

std::streamsize ChunkReader::xsgetn(char* s, std::streamsize n) {
  std::streamsize done = 0;
  while (done < n) {
    if (gptr() < egptr()) {
      const auto take = std::min<std::streamsize>(n - done, egptr() - gptr());
      std::memcpy(s + done, gptr(), static_cast<std::size_t>(take));
      gbump(static_cast<int>(take));
      done += take;
      continue;
    }
    const std::uint64_t position = Position();
    if (mDamaged || position >= mSize) break;
    // A whole chunk wanted from its start goes straight into the caller's memory.
    const auto it =
        std::upper_bound(mChunks.begin(), mChunks.end(), position,
                         [](std::uint64_t p, const Chunk& chunk) { return p < chunk.offset; });
    const auto index = static_cast<std::size_t>(it - mChunks.begin()) - 1;
    const Chunk& chunk = mChunks[index];
    if (position == chunk.offset && static_cast<std::uint64_t>(n - done) >= chunk.size) {
      mBufferValid = false;
      setg(nullptr, nullptr, nullptr);
      if (!ReadChunk(index, s + done)) {
        mPosition = position;
        break;
      }
      done += static_cast<std::streamsize>(chunk.size);
      mPosition = position + chunk.size;
      continue;
    }
    if (!Load(position)) break;
  }
  return done;
}

std::streamsize ChunkReader::showmanyc() {
  const std::uint64_t position = Position();
  return position < mSize ? static_cast<std::streamsize>(mSize - position) : -1;
}

ChunkReader::pos_type ChunkReader::seekoff(off_type off, std::ios_base::seekdir dir,
                                           std::ios_base::openmode which) {
  const std::uint64_t base = dir == std::ios_base::beg   ? 0
                             : dir == std::ios_base::cur ? Position()
                                                         : mSize;
  return seekpos(pos_type(static_cast<off_type>(base) + off), which);
}

ChunkReader::pos_type ChunkReader::seekpos(pos_type pos, std::ios_base::openmode which) {
  const auto target = static_cast<off_type>(pos);
  if (!(which & std::ios_base::in) || target < 0 || static_cast<std::uint64_t>(target) > mSize) {
    return pos_type(off_type(-1));
  }
  const auto position = static_cast<std::uint64_t>(target);
  if (mBufferValid && position >= mChunks[mLoaded].offset &&
      position < mChunks[mLoaded].offset + mChunks[mLoaded].size) {
    setg(eback(), eback() + (position - mChunks[mLoaded].offset), egptr());
  } else {
    mBufferValid = false;
    setg(nullptr, nullptr, nullptr);
    mPosition = position;
  }
  return pos;
}

}  // namespace ncds::detail
