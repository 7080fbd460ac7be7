#ifndef NCDS_PROJECT_DETAIL_BLOBCHUNKS_H
#define NCDS_PROJECT_DETAIL_BLOBCHUNKS_H

// Named byte streams stored in a project file as numbered chunks, each with the crc32 of its
// bytes. Chunks keep every stream below SQLite's blob limit and let a stream of any size be
// written and read through a buffer of one chunk, never a second copy of the whole.
//
// Two tables (made by `CreateChunkTable`): `ncds_blob` holds the bytes of each chunk under a
// row number, `ncds_chunk` one small row per chunk: the stream's name, the chunk's number from
// 0, its crc32 and the row of its bytes. Chunks hold at most the chunk size; a large write is
// stored straight from the writer's memory, so the chunk before it may be shorter.
//
// `ChunkWriter` is a seekable output buffer: the stream framework goes back to patch the
// length of a large entry once it is written. A patch that lands in a chunk already stored is
// kept and applied, with the chunk's crc32 made anew, when the writer is closed. Write inside
// a transaction; the chunks become visible with it.
//
// A stream is replaced only when its writer closes: the new bytes go to new rows first and the
// old rows are freed last (at the end of the transaction, see `Close`). SQLite then never has to
// save the old bytes in its rollback journal (they are not overwritten), and the pages they free
// are reused by the next save without journaling either, since pages free when a transaction starts
// hold nothing to restore. A rewrite of a large stream thus costs one write of its bytes, at the
// price of room for the old copy in the file.
//
// `ChunkReader` is a seekable input buffer that checks each chunk's crc32 as it first reads
// it. A damaged or missing chunk ends the stream early (the read then fails) and sets
// `IsDamaged`, so that the caller can say which stream is damaged.

#include <cstdint>
#include <functional>
#include <streambuf>
#include <string>
#include <vector>

#include "ncds/project/detail/PutBuffer.h"
#include "ncds/project/detail/Sqlite.h"

namespace ncds::detail {

// SQLite keeps a row's bytes in the table's leaf page up to a limit, and beyond it a first part
// there and the rest in a chain of overflow pages. A chunk of this size fills exactly one
// overflow page of 64 KB besides the smallest part SQLite keeps in the leaf (8,199 bytes). A
// single overflow page is taken from the free list without a search for one near the last
// and is freed without being read, so that a save that replaces a stream costs the same for
// any size of stream; a chain of several pages costs a search of the free list per page.
inline constexpr std::size_t kDefaultChunkSize = 8199 + 65532;

void CreateChunkTable(SqliteDatabase& db);
// Removes the chunks of stream `name`.
void DeleteChunks(SqliteDatabase& db, const std::string& name);
// Removes stream `name` from the index and adds the rows of its bytes to `blobs`, for
// `DeleteBlobs` later.
void DetachChunks(SqliteDatabase& db, const std::string& name, std::vector<std::int64_t>& blobs);
void DeleteBlobs(SqliteDatabase& db, const std::vector<std::int64_t>& blobs);
// Whether stream `name` has chunks.
bool HasChunks(SqliteDatabase& db, const std::string& name);
// The whole of stream `name` in `bytes`; false when it is missing, damaged or short.
bool ReadStreamBytes(SqliteDatabase& db, const std::string& name, std::string& bytes);

class ChunkWriter final : public PutBuffer {
 public:
  // Called with the size of each chunk as it is stored.
  using StoredCallback = std::function<void(std::size_t bytes)>;

  // Writes stream `name`; Close replaces the old stream of that name, if any.
  ChunkWriter(SqliteDatabase& db, std::string name, std::size_t chunkSize = kDefaultChunkSize,
              StoredCallback onStored = nullptr);
  ChunkWriter(const ChunkWriter&) = delete;
  ChunkWriter& operator=(const ChunkWriter&) = delete;

  // Stores what is buffered and the patches, and puts the stream in place of the old one.
  // The old stream's bytes are deleted at once, or, with `replaced`, their rows are added to
  // it for the caller to delete when the transaction has written everything else: pages freed
  // and reused within one transaction would have to be journaled. Throws `NCError` when the
  // database fails.
  void Close(std::vector<std::int64_t>* replaced = nullptr);
  std::uint64_t Size() const;

 protected:
  std::streamsize xsputn(const char* s, std::streamsize n) override;
  pos_type seekoff(off_type off, std::ios_base::seekdir dir,
                   std::ios_base::openmode which) override;
  pos_type seekpos(pos_type pos, std::ios_base::openmode which) override;

 private:
  struct Patch {
    std::uint64_t offset;
    std::string bytes;
  };

  // The end of what was written to the buffer, wherever the put pointer stands.
  std::size_t BufferedEnd() const;
  void StoreChunk(const char* data, std::size_t size);
  // Stores a chunk whose checksum the caller fills in.
  void StoreRow(const char* data, std::size_t size);
  // Stores `count` chunks of the chunk size straight from `data`.
  void StoreChunks(const char* data, std::size_t count);
  void StoreFullBuffer();
  void ApplyPatches();

  struct StoredChunk {
    std::int64_t row;  // in ncds_blob
    std::uint32_t crc;
    std::uint64_t offset;  // of its first byte in the stream
  };

  SqliteDatabase& mDb;
  std::string mName;
  std::size_t mChunkSize;
  StoredCallback mOnStored;
  std::vector<char> mBuffer;
  std::size_t mHighWater = 0;  // bytes written to the buffer, beyond a backwards seek
  std::uint64_t mStored = 0;   // bytes in stored chunks
  std::vector<StoredChunk> mChunks;
  // Writing below mStored: the position, and the patches collected.
  bool mPatching = false;
  std::uint64_t mPatchPosition = 0;
  std::vector<Patch> mPatches;
  SqliteStatement mInsert;
  bool mClosed = false;
};

class ChunkReader final : public std::streambuf {
 public:
  ChunkReader(SqliteDatabase& db, std::string name);
  ChunkReader(const ChunkReader&) = delete;
  ChunkReader& operator=(const ChunkReader&) = delete;

  std::uint64_t Size() const { return mSize; }
  bool IsDamaged() const { return mDamaged; }

 protected:
  int_type underflow() override;
  std::streamsize xsgetn(char* s, std::streamsize n) override;
  std::streamsize showmanyc() override;
  pos_type seekoff(off_type off, std::ios_base::seekdir dir,
                   std::ios_base::openmode which) override;
  pos_type seekpos(pos_type pos, std::ios_base::openmode which) override;

 private:
  struct Chunk {
    std::int64_t row;  // in ncds_blob
    std::uint32_t crc;
    std::uint64_t offset;
    std::size_t size;
  };

  std::uint64_t Position() const;
  // Reads chunk `index` into `dst` and checks it; false (and damaged) when it does not match.
  bool ReadChunk(std::size_t index, char* dst);
  // Makes the chunk holding `position` the buffer; false at the end or when damaged.
  bool Load(std::uint64_t position);

  SqliteDatabase& mDb;
  std::string mName;
  std::vector<Chunk> mChunks;
  std::uint64_t mSize = 0;
  std::vector<char> mBuffer;
  std::size_t mLoaded = 0;  // index of the buffered chunk, when mBufferValid
  bool mBufferValid = false;
  std::uint64_t mPosition = 0;  // read position when nothing is buffered
  bool mDamaged = false;
};

}  // namespace ncds::detail

#endif  // NCDS_PROJECT_DETAIL_BLOBCHUNKS_H
