#include "ncds/foundations/MD5.h"

// clang-format off
#include <sys/types.h>
#include <md5.h>
// clang-format on

static_assert(MD5_DIGEST_LENGTH == std::tuple_size_v<MD5::RawDigest>);

MD5::MD5() : mContext(std::make_unique<MD5Context>()) { MD5Init(mContext.get()); }
MD5::MD5(MD5&&) noexcept = default;
MD5& MD5::operator=(MD5&&) noexcept = default;
MD5::~MD5() = default;

void MD5::Update(const void* bytes, std::size_t size) {
  if (mContext && size > 0)
    MD5Update(mContext.get(), static_cast<const std::uint8_t*>(bytes), size);
}

void MD5::Finalize() {
  if (!mContext) return;
  MD5Final(mDigest.data(), mContext.get());
  mContext.reset();
}

MD5::RawDigest MD5::Of(const void* bytes, std::size_t size) {
  MD5 digest;
  digest.Update(bytes, size);
  digest.Finalize();
  return digest.GetRawDigest();
}

std::string MD5::ToHex(const RawDigest& digest) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * digest.size());
  for (const std::uint8_t byte : digest) {
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 0x0F]);
  }
  return text;
}
