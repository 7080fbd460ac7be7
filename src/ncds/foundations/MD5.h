#ifndef NCDS_FOUNDATIONS_MD5_H
#define NCDS_FOUNDATIONS_MD5_H

// MD5 digests (RFC 1321), computed by libmd: fed piece by piece with `Update`, closed with
// `Finalize`, read with `GetRawDigest`. Used for content fingerprints, not for security.
// Movable, not copyable; one thread at a time.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "ncds/ncds_export.h"

struct MD5Context;

class NCDS_EXPORT MD5 {
 public:
  using RawDigest = std::array<std::uint8_t, 16>;

  MD5();
  MD5(MD5&&) noexcept;
  MD5& operator=(MD5&&) noexcept;
  ~MD5();

  // Adds `size` bytes at `bytes`; ignored once finalised.
  void Update(const void* bytes, std::size_t size);
  // Closes the digest; later calls do nothing.
  void Finalize();
  // The digest; all zeros before `Finalize`.
  const RawDigest& GetRawDigest() const { return mDigest; }

  // The digest of `size` bytes at `bytes`.
  static RawDigest Of(const void* bytes, std::size_t size);
  // 32 lowercase hexadecimal digits, first byte first: what `md5sum` prints.
  static std::string ToHex(const RawDigest& digest);

 private:
  std::unique_ptr<MD5Context> mContext;  // null once finalised
  RawDigest mDigest{};
};

#endif  // NCDS_FOUNDATIONS_MD5_H
