#ifndef NCDS_METADATA_UNIQUEIDS_H
#define NCDS_METADATA_UNIQUEIDS_H

// The fixed unique IDs. A unique ID is a 32-bit number that names one variable or observation
// across a whole project; it is stored in `unsigned long` and written as four bytes.

namespace NCUniqueIDs {

// The ID that names nothing: failed lookups answer it, an observation outside every batch has
// it as its batch, and it stands for "no variable" wherever a variable ID is expected.
constexpr unsigned long kNone = 3262240001UL;  // C271D501
// The constant variable "$constant" of every project.
constexpr unsigned long kConstant = 3262240002UL;  // C271D502

}  // namespace NCUniqueIDs

#endif  // NCDS_METADATA_UNIQUEIDS_H
