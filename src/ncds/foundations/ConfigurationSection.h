#ifndef NCDS_FOUNDATIONS_CONFIGURATIONSECTION_H
#define NCDS_FOUNDATIONS_CONFIGURATIONSECTION_H

// A section of a configuration: a name, values by key and nested subsections, kept in memory
// and read from or written to an XML file. Several subsections may share a name; they are
// numbered 1..n in document order. A section owns its subsections; a pointer to one stays
// valid until that subsection is removed or its parent is loaded, cleared or assigned.
// Values are texts; floats are stored as their shortest text that reads back exactly.
// Copies are deep. Not synchronised.
//
// The XML form is one element per section, its values as attributes, its subsections as child
// elements in order; the root element is the section loaded or saved:
//
//   <?xml version="1.0" encoding="UTF-8"?>
//   <Configuration>
//     <LocalCentering>
//       <LCData Batch="B1" Center="1.5" Phase="P1" Variable="Temperature"/>
//     </LocalCentering>
//   </Configuration>
//
// Files are UTF-8. Comments, the XML declaration and white space between elements are
// allowed; text inside an element, a repeated attribute, or nesting deeper than
// `kMaxDepth` is refused. Names of sections and keys are XML names (a letter, '_', ':' or a
// non-ASCII byte, then also digits, '-' and '.'). Values are written in key order; a NUL
// character ends a value in the file.
//
// Loading parses the whole document into a new tree and replaces this section's name, values
// and subsections only when it succeeded, so a failed load leaves the section as it was. It
// throws `NCError` naming the source and the line of the fault.

#include <cstddef>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ncds/ncds_export.h"

class NCDS_EXPORT ConfigurationSection {
 public:
  // Deepest nesting of sections a loaded document may have.
  static constexpr int kMaxDepth = 256;

  // An empty section named "Configuration".
  ConfigurationSection();
  // Throws `InvalidArgument` when `name` is not an XML name.
  explicit ConfigurationSection(const std::string& name);
  ConfigurationSection(const ConfigurationSection& other);
  ConfigurationSection(ConfigurationSection&& other) noexcept;
  ConfigurationSection& operator=(const ConfigurationSection& other);
  ConfigurationSection& operator=(ConfigurationSection&& other) noexcept;
  ~ConfigurationSection();

  // The same name, values and subsections in the same order.
  bool operator==(const ConfigurationSection& other) const;
  bool operator!=(const ConfigurationSection& other) const { return !(*this == other); }

  const std::string& GetName() const { return mName; }
  // Removes all values and subsections; the name stays.
  void Clear();

  // --- Subsections -----------------------------------------------------------------------

  // The first subsection named `name`, or null.
  ConfigurationSection* OpenSubSection(const std::string& name);
  const ConfigurationSection* OpenSubSection(const std::string& name) const;
  // Subsection `number` (1-based) of those named `name`, or null when there are fewer.
  ConfigurationSection* OpenSubSection(const std::string& name, std::size_t number);
  const ConfigurationSection* OpenSubSection(const std::string& name, std::size_t number) const;
  std::size_t CountSubSections(const std::string& name) const;
  // Appends a new empty subsection; it becomes the last one named `name`. Throws
  // `InvalidArgument` when `name` is not an XML name.
  ConfigurationSection& AddSubSection(const std::string& name);
  // Removes every subsection named `name`; answers how many there were.
  std::size_t RemoveSubSections(const std::string& name);
  // All subsections in document order; `GetSubSection` takes a 0-based index below
  // `SizeSubSections` and throws std::out_of_range otherwise.
  std::size_t SizeSubSections() const { return mSubSections.size(); }
  const ConfigurationSection& GetSubSection(std::size_t index) const {
    return *mSubSections.at(index);
  }

  // --- Values ----------------------------------------------------------------------------

  bool HasKey(const std::string& key) const;
  // Sets `value` and answers true when the key is present (and, for a float, its text is a
  // number: decimal, or "inf", "-inf", "nan"); otherwise answers false and leaves `value`.
  bool ReadFloat(const std::string& key, float& value) const;
  bool ReadString(const std::string& key, std::string& value) const;
  // The value, or `defaultValue` where the Read form answers false.
  float GetFloat(const std::string& key, float defaultValue) const;
  std::string GetString(const std::string& key, const std::string& defaultValue) const;
  // Sets or replaces a value. Throws `InvalidArgument` when `key` is not an XML name.
  void SetFloat(const std::string& key, float value);
  void SetString(const std::string& key, const std::string& value);
  bool RemoveKey(const std::string& key);
  // Every key with its text, in key order.
  const std::map<std::string, std::string>& GetValues() const { return mValues; }

  // --- XML -------------------------------------------------------------------------------

  // Throws `NCError` when the file cannot be read or is not a valid configuration.
  void LoadFile(const std::string& path);
  // Writes through a temporary file beside `path` that then replaces it, so an existing file
  // is either kept or wholly replaced. Throws `NCError` when the file cannot be written.
  void SaveFile(const std::string& path) const;
  // The same for a text or a stream; `sourceName` names it in error messages.
  void LoadString(const std::string& xml, const std::string& sourceName);
  void Load(std::istream& is, const std::string& sourceName);
  std::string SaveString() const;
  // Throws `NCError` when the stream fails.
  void Save(std::ostream& os) const;

  // Whether `name` can name a section or a key.
  static bool IsValidName(const std::string& name);

 private:
  void RebuildIndex();
  // Points the subsections' parent links at this section and rebuilds the index.
  void AdoptSubSections();
  // Replaces name, values and subsections, keeping the parent's index right.
  void Assign(std::string name, std::map<std::string, std::string> values,
              std::vector<std::unique_ptr<ConfigurationSection>> subSections);

  std::string mName;
  std::map<std::string, std::string> mValues;
  std::vector<std::unique_ptr<ConfigurationSection>> mSubSections;
  // Subsections by name, each list in document order.
  std::map<std::string, std::vector<ConfigurationSection*>, std::less<>> mByName;
  // The section this one is a subsection of, or null; assignment keeps it.
  ConfigurationSection* mParent = nullptr;
};

#endif  // NCDS_FOUNDATIONS_CONFIGURATIONSECTION_H
