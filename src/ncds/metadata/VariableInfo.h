#ifndef NCDS_METADATA_VARIABLEINFO_H
#define NCDS_METADATA_VARIABLEINFO_H

// The description of one variable (a column of a dataset): beside its identity its role in
// models (the block: X or Y, included or excluded), how it came about (the type: 0 for an
// imported variable, any other value for a generated one, with a reference whose meaning
// depends on the type), its unit, generating recipe, treatment, classes (phases) and maturity.
// The dataset holds every value as a float; the concrete kind says how a float is turned into
// text and back (`Encode`, `Decode`). The variable container owns the records; copies are
// made with `Clone`.
//
// Persistent: magic "VIO", version 4, after the identity part; tags 1 unit, 2 block, 5 recipe,
// 6 source model, 7 type, 8 reference, 9 classes, 10 treatment, 11 maturity. Only version 4
// is read. Variables produced by models before the reference was stored get it back from
// their primary ID ("$M<model>.t<component>", "$M<model>.XVarRes<component>") on reading.

#include <cstdint>
#include <iosfwd>
#include <set>
#include <string>
#include <vector>

#include "ncds/foundations/VStreamableData.h"
#include "ncds/metadata/VarObsInfo.h"
#include "ncds/ncds_export.h"

class NCVariables;
class QuantitativeVariableInfo;
class QualitativeVariableInfo;
class DateTimeVariableInfo;

class NCDS_EXPORT VariableInfo : public VarObsInfo {
 public:
  // The role of a variable in models.
  enum EVariableBlock : std::int32_t { eX = 0, eY = 1, eExcludedX = 2, eExcludedY = 3 };
  // How a variable came about. 0 is an imported variable; the other values are generated
  // variables: 4 and 14-20 (16 aside) refer to a model component, 16 to a class, 5-13 to a
  // source variable (6-13 being summaries of it).
  enum EVariableType : std::int32_t {
    eOrdinary = 0,
    eBatchCondition = 1,
    eScore = 14,
    eXResidual = 15,
    eDAClass = 16,
  };

  static constexpr int kDefaultTreatment = 8;

  ~VariableInfo() override;

  const VariableInfo* AsVariableInfo() const override;

  // The value of `text` in the dataset's float form.
  virtual float Encode(const char* text) const = 0;
  // The text of a value in the dataset's float form.
  virtual std::string Decode(float value) = 0;
  virtual bool IsQualitative() const;
  // A heap copy of the same kind; the caller owns it.
  virtual VariableInfo* Clone() const = 0;
  virtual const QuantitativeVariableInfo* AsQuantitativeVariableInfo() const = 0;
  virtual const QualitativeVariableInfo* AsQualitativeVariableInfo() const = 0;
  virtual const DateTimeVariableInfo* AsDateTimeVariableInfo() const = 0;

  EVariableBlock GetVariableBlock() const { return mBlock; }
  void SetVariableBlock(EVariableBlock block) { mBlock = block; }
  EVariableType GetVariableType() const { return mType; }
  void SetVariableType(EVariableType type) { mType = type; }
  const std::string& GetUnit() const { return mUnit; }
  void SetUnit(const std::string& unit) { mUnit = unit; }
  const std::string& GetRecipe() const { return mRecipe; }
  void SetRecipe(const std::string& recipe) { mRecipe = recipe; }
  int GetSourceModel() const { return mSourceModel; }
  void UpdateSourceModel(int model) { mSourceModel = model; }
  int GetTreatment() const { return mTreatment; }
  void SetTreatment(int treatment) { mTreatment = treatment; }
  const std::set<int>& GetClasses() const { return mClasses; }
  void SetClasses(const std::set<int>& classes) { mClasses = classes; }
  float GetMaturity() const { return mMaturity; }
  int GetReference() const { return mReference; }

  bool IsIncluded() const { return mBlock == eX || mBlock == eY; }
  bool IsX() const { return mBlock == eX || mBlock == eExcludedX; }
  bool IsY() const { return mBlock == eY || mBlock == eExcludedY; }
  bool IsGenerated() const { return mType != eOrdinary; }
  bool IsSummary() const { return mType >= 6 && mType <= 13; }
  bool IsHierarchical() const { return mType >= 14 && mType <= 20 && mType != eDAClass; }
  // The model component the variable refers to, or -1.
  int GetComponent() const;
  // The class the variable refers to, or -1.
  int GetDAClass() const;
  // The unique ID of the variable this one is computed from, or the ID that names nothing.
  unsigned long GetSourceVariable() const;

  // Includes or excludes the variable, keeping its X or Y side.
  void SetIncluded(bool included);
  // Adds `classes`. A variable without classes belongs to every class, so it first receives
  // all classes 1..numClasses (when numClasses >= 1) before the new ones are added.
  void AddClasses(const std::set<int>& classes, int numClasses);
  // The variable's ID in the container's source-ID series, located in this record's ID list
  // through `seriesMap`; empty when there is no such series or ID.
  const std::string& GetSourceName(const NCVariables& vars,
                                   const std::vector<int>& seriesMap) const;

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  VariableInfo();
  VariableInfo(const std::string& id, unsigned long uniqueID, const std::string& recipe,
               int sourceModel, int reference, EVariableType type);
  VariableInfo(const VariableInfo& other);
  VariableInfo& operator=(const VariableInfo& other);

  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  bool VStreamableWrite(std::ostream& os) const;
  bool ReadStreamDirectory(std::istream& is);
  // Restores type and reference of model variables stored without their reference.
  void RepairModelVariable();

  VStreamGuard mGuard;
  EVariableBlock mBlock = eX;
  EVariableType mType = eOrdinary;
  std::string mUnit;
  std::string mRecipe;
  std::int32_t mSourceModel = -1;
  std::int32_t mReference = 0;
  std::int32_t mTreatment = kDefaultTreatment;
  std::set<int> mClasses;
  float mMaturity = -99.0F;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_METADATA_VARIABLEINFO_H
