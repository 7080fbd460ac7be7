#ifndef NCDS_METADATA_INFOSBYUSERID_H
#define NCDS_METADATA_INFOSBYUSERID_H

// A lookup from the user ID text of one ID series to the record that carries it, ignoring
// letter case (ASCII). Containers build it over all their records (`VarObs::GetInfosByUserID`);
// records without an ID in the series are not entered. When several records share an ID the
// lookup answers the one with the smallest unique ID, and `IsIDUnique` turns false.
//
// The lookup points at the records and at their own ID texts; it copies no strings. It stays
// right until a record's IDs change or a record is deleted; the container drops its cached
// lookup on every such change, and a lookup held beyond that is stale and must not be used.
//
// Lookups (`GetInfo`, `GetUniqueID`) are const and safe from several threads at once;
// `AddInfo` needs the lookup to itself. Not copyable.

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "ncds/ncds_export.h"

class VarObs;
class VarObsInfo;

namespace ncds::detail {
class UserIDTable;
}

class NCDS_EXPORT InfosByUserID {
 public:
  // An empty lookup.
  InfosByUserID();
  // The lookup of series `series` over all records of `owner`, built in one pass.
  InfosByUserID(const VarObs& owner, int series);
  ~InfosByUserID();
  InfosByUserID(const InfosByUserID&) = delete;
  InfosByUserID& operator=(const InfosByUserID&) = delete;

  // Enters `info` under its ID in `series`; nothing for a null record or an empty ID. Adding
  // a record with an ID that another record already has clears `IsIDUnique`.
  void AddInfo(const VarObsInfo* info, int series);

  // The record whose ID equals `id` ignoring case, or null (also for a null `id`).
  const VarObsInfo* GetInfo(const char* id) const;
  const VarObsInfo* GetInfo(const std::string& id) const;
  // The records of many IDs at once: `infos[i]` is `GetInfo(ids[i])`. On a large lookup this
  // is several times faster than asking one by one, because the memory of many lookups is
  // fetched at the same time.
  void GetInfos(const std::string* ids, std::size_t count, const VarObsInfo** infos) const;
  std::vector<const VarObsInfo*> GetInfos(const std::vector<std::string>& ids) const;
  // The unique ID of that record, or `NCUniqueIDs::kNone`.
  unsigned long GetUniqueID(const char* id) const;
  // False once two records with equal IDs (ignoring case) were entered.
  bool IsIDUnique() const;
  // The number of records entered.
  std::size_t size() const;

 private:
  std::unique_ptr<ncds::detail::UserIDTable> mTable;
};

#endif  // NCDS_METADATA_INFOSBYUSERID_H
