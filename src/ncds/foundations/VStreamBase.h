#ifndef NCDS_FOUNDATIONS_VSTREAMBASE_H
#define NCDS_FOUNDATIONS_VSTREAMBASE_H

// The virtual base of every persistent class.
//
// A persistent class writes, in `VStreamableStartWrite`, its magic and version (through its
// static `VStreamableData`), then its base class's part, then a directory of its own fields;
// `VStreamableStartRead` reads the same and answers false for a foreign magic, a version the
// class does not accept, or a damaged stream. Each class keeps a `VStreamGuard` so that an
// object reached twice in one pass is written or read once; `VStreamableReset` clears it.
//
// `os << object` and `is >> object` write or read one object and end its pass; a failure sets
// the stream's failbit. Readers never let `VxStreamError` escape through these operators.

#include <iosfwd>

#include "ncds/ncds_export.h"

class NCDS_EXPORT VStreamBase {
 public:
  virtual ~VStreamBase();

  friend NCDS_EXPORT std::ostream& operator<<(std::ostream& os, const VStreamBase& object);
  friend NCDS_EXPORT std::istream& operator>>(std::istream& is, VStreamBase& object);

 protected:
  VStreamBase() = default;
  VStreamBase(const VStreamBase&) = default;
  VStreamBase& operator=(const VStreamBase&) = default;

  virtual bool VStreamableStartWrite(std::ostream& os) const = 0;
  virtual bool VStreamableStartRead(std::istream& is) = 0;
  virtual void VStreamableReset() const = 0;
};

// The streaming guard flag of one class part of an object: set while that part is written or
// read in the current pass. Copies start unset.
class VStreamGuard {
 public:
  VStreamGuard() = default;
  VStreamGuard(const VStreamGuard&) {}
  VStreamGuard& operator=(const VStreamGuard&) { return *this; }

  // Sets the flag; false when it was set already (the part is done in this pass).
  bool Enter() const {
    if (mSet) return false;
    mSet = true;
    return true;
  }
  void Reset() const { mSet = false; }
  bool IsSet() const { return mSet; }

 private:
  mutable bool mSet = false;
};

#endif  // NCDS_FOUNDATIONS_VSTREAMBASE_H
