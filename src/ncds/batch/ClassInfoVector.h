#ifndef NCDS_BATCH_CLASSINFOVECTOR_H
#define NCDS_BATCH_CLASSINFOVECTOR_H

// An ordered list of phase records, in time order: the phases of a dataset, or those that
// occur in one batch with that batch's counts. It behaves like a standard vector of
// `boost::shared_ptr<ClassInfo>`, except that copies are deep: every record is cloned, so two
// lists never share a `ClassInfo`. A slot may be empty (a null pointer); copies, comparisons
// and streams keep it.
//
// The list has no magic of its own; its owners put it under one tag of their directory in the
// form `WriteToStream` writes: a four-byte count, then per slot one byte 1 and the record's
// stream, or one byte 0 for an empty slot.

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <iosfwd>
#include <memory>
#include <utility>
#include <vector>

#include "ncds/batch/ClassInfo.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT ClassInfoVector {
 public:
  using value_type = boost::shared_ptr<ClassInfo>;
  using iterator = std::vector<value_type>::iterator;
  using const_iterator = std::vector<value_type>::const_iterator;

  ClassInfoVector();
  ClassInfoVector(const ClassInfoVector& other);
  ClassInfoVector(ClassInfoVector&& other) noexcept;
  ClassInfoVector& operator=(const ClassInfoVector& other);
  ClassInfoVector& operator=(ClassInfoVector&& other) noexcept;
  ~ClassInfoVector();

  // Same length and pairwise equal records (two empty slots are equal).
  bool operator==(const ClassInfoVector& other) const;
  bool operator!=(const ClassInfoVector& other) const { return !(*this == other); }

  iterator begin() { return mPhases.begin(); }
  iterator end() { return mPhases.end(); }
  const_iterator begin() const { return mPhases.begin(); }
  const_iterator end() const { return mPhases.end(); }
  std::size_t size() const { return mPhases.size(); }
  bool empty() const { return mPhases.empty(); }
  void reserve(std::size_t count) { mPhases.reserve(count); }
  // 0-based, unchecked like a standard vector.
  value_type& operator[](std::size_t index) { return mPhases[index]; }
  const value_type& operator[](std::size_t index) const { return mPhases[index]; }
  // The first and last slot; the list must not be empty.
  value_type& front() { return mPhases.front(); }
  const value_type& front() const { return mPhases.front(); }
  value_type& back() { return mPhases.back(); }
  const value_type& back() const { return mPhases.back(); }
  // Adds `phase` itself, not a copy: the list then shares it with the caller.
  void push_back(value_type phase) { mPhases.push_back(std::move(phase)); }
  iterator insert(const_iterator position, value_type phase) {
    return mPhases.insert(position, std::move(phase));
  }
  iterator erase(const_iterator position) { return mPhases.erase(position); }
  iterator erase(const_iterator first, const_iterator last) { return mPhases.erase(first, last); }
  void clear() { mPhases.clear(); }

  // Writes the list in its tagged-entry form; false when the stream failed.
  bool WriteToStream(std::ostream& os) const;
  // Reads a list written by `WriteToStream`. Throws `VxStreamError` when the bytes are short
  // or damaged; nothing is allocated beyond what the stream can hold.
  static std::unique_ptr<ClassInfoVector> ReadFromStream(std::istream& is);

 private:
  std::vector<value_type> mPhases;
};

#endif  // NCDS_BATCH_CLASSINFOVECTOR_H
