#ifndef NCDS_METADATA_VAROBSINFOVECTOR_H
#define NCDS_METADATA_VAROBSINFOVECTOR_H

// An ordered list of records, such as the rows of a dataset or a set of new observations on
// their way into one. It points at records without owning them: the records belong to their
// container (`NCObservations`, `NCVariables`) and must outlive the list. An entry may be null
// where a record was asked for by a unique ID that its container does not hold.
//
// Positions are 0-based like a standard vector; `operator[]` answers null beyond the end.
// Copying copies the pointers, not the records. Not synchronised.

#include <cstddef>
#include <initializer_list>
#include <vector>

#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/ncds_export.h"

class ObservationInfo;

template <class T>
class VarObsInfoVector {
 public:
  using value_type = T*;
  using iterator = typename std::vector<T*>::iterator;
  using const_iterator = typename std::vector<T*>::const_iterator;

  VarObsInfoVector() = default;
  // `size` null entries.
  explicit VarObsInfoVector(std::size_t size) : mInfos(size, nullptr) {}
  VarObsInfoVector(std::initializer_list<T*> infos) : mInfos(infos) {}

  bool operator==(const VarObsInfoVector& other) const { return mInfos == other.mInfos; }
  bool operator!=(const VarObsInfoVector& other) const { return mInfos != other.mInfos; }

  std::size_t size() const { return mInfos.size(); }
  bool empty() const { return mInfos.empty(); }
  void reserve(std::size_t count) { mInfos.reserve(count); }
  void resize(std::size_t count) { mInfos.resize(count, nullptr); }
  void push_back(T* info) { mInfos.push_back(info); }
  void clear() { mInfos.clear(); }

  // The record at `index`, or null beyond the end.
  T* operator[](std::size_t index) const { return index < mInfos.size() ? mInfos[index] : nullptr; }
  // The entry at `index` for writing; `index` must be below size().
  T*& operator()(std::size_t index) { return mInfos[index]; }

  iterator begin() { return mInfos.begin(); }
  iterator end() { return mInfos.end(); }
  const_iterator begin() const { return mInfos.begin(); }
  const_iterator end() const { return mInfos.end(); }

  iterator insert(const_iterator position, T* info) { return mInfos.insert(position, info); }
  template <class InputIt>
  iterator insert(const_iterator position, InputIt first, InputIt last) {
    return mInfos.insert(position, first, last);
  }
  iterator erase(const_iterator position) { return mInfos.erase(position); }
  iterator erase(const_iterator first, const_iterator last) { return mInfos.erase(first, last); }

  // The unique IDs of the records in order; 0 (the list's "none") for a null entry.
  NCIntegralVector<unsigned long, 0> GetUniqueIDs() const {
    NCIntegralVector<unsigned long, 0> ids(mInfos.size(), 0);
    for (std::size_t i = 0; i < mInfos.size(); ++i) {
      if (mInfos[i]) ids(i) = mInfos[i]->GetUniqueID();
    }
    return ids;
  }

 private:
  std::vector<T*> mInfos;
};

// One empty list shared by the whole library, for getters that return a reference.
NCDS_EXPORT const VarObsInfoVector<ObservationInfo>& EmptyObservationInfoVector();

#endif  // NCDS_METADATA_VAROBSINFOVECTOR_H
