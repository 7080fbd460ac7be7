#ifndef NCDS_FOUNDATIONS_VSTREAMLIGHT_H
#define NCDS_FOUNDATIONS_VSTREAMLIGHT_H

// Magic string and version number of a small record, without the nested-object machinery.
// The same bytes open every persistent object: the magic's length (one byte), the magic,
// then the version (two bytes).

#include <cstdint>
#include <iosfwd>
#include <string>

#include "ncds/ncds_export.h"

class NCDS_EXPORT VStreamLight {
 public:
  // Longest magic string the layout can hold.
  static constexpr std::size_t kMaxMagicLength = 255;

  static bool WriteMagicStringAndVersionNumber(std::ostream& os, std::uint16_t version,
                                               const std::string& magic);
  // Reads a magic string and version; false (the version untouched) unless the magic read is
  // exactly `magic`. Never throws.
  static bool CheckMagicStringAndVersionNumber(std::istream& is, std::uint16_t& version,
                                               const std::string& magic);
};

#endif  // NCDS_FOUNDATIONS_VSTREAMLIGHT_H
