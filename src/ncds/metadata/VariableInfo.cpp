#include "ncds/metadata/VariableInfo.h"

#include <cstdio>
#include <istream>
#include <ostream>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/UniqueIDs.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 4;
constexpr std::uint16_t kNumberOfTags = 12;
constexpr std::uint16_t kTagUnit = 1;
constexpr std::uint16_t kTagBlock = 2;
constexpr std::uint16_t kTagRecipe = 5;
constexpr std::uint16_t kTagSourceModel = 6;
constexpr std::uint16_t kTagType = 7;
constexpr std::uint16_t kTagReference = 8;
constexpr std::uint16_t kTagClasses = 9;
constexpr std::uint16_t kTagTreatment = 10;
constexpr std::uint16_t kTagMaturity = 11;

bool RefersToComponent(int type) {
  return type == 4 || type == 14 || type == 15 || (type >= 17 && type <= 20);
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData VariableInfo::msVStreamData(ncds::detail::kVersion, "VIO");

VariableInfo::VariableInfo() = default;

VariableInfo::VariableInfo(const std::string& id, unsigned long uniqueID, const std::string& recipe,
                           int sourceModel, int reference, EVariableType type)
    : VarObsInfo(id, uniqueID),
      mType(type),
      mRecipe(recipe),
      mSourceModel(sourceModel),
      mReference(reference) {}

VariableInfo::VariableInfo(const VariableInfo& other) = default;

VariableInfo& VariableInfo::operator=(const VariableInfo& other) = default;

VariableInfo::~VariableInfo() = default;

const VariableInfo* VariableInfo::AsVariableInfo() const { return this; }

bool VariableInfo::IsQualitative() const { return false; }

int VariableInfo::GetComponent() const {
  return ncds::detail::RefersToComponent(mType) ? mReference : -1;
}

int VariableInfo::GetDAClass() const { return mType == eDAClass ? mReference : -1; }

unsigned long VariableInfo::GetSourceVariable() const {
  return mType >= 5 && mType <= 13 ? static_cast<std::uint32_t>(mReference) : NCUniqueIDs::kNone;
}

void VariableInfo::SetIncluded(bool included) {
  if (included) {
    if (mBlock == eExcludedX) mBlock = eX;
    if (mBlock == eExcludedY) mBlock = eY;
    return;
  }
  switch (mBlock) {
    case eX:
    case eExcludedX:
      mBlock = eExcludedX;
      break;
    default:
      mBlock = eExcludedY;
      break;
  }
}

void VariableInfo::AddClasses(const std::set<int>& classes, int numClasses) {
  if (mClasses.empty()) {
    for (int c = 1; c <= numClasses; ++c) mClasses.insert(mClasses.end(), c);
  }
  mClasses.insert(classes.begin(), classes.end());
}

const std::string& VariableInfo::GetSourceName(const NCVariables& vars,
                                               const std::vector<int>& seriesMap) const {
  const int position = vars.GetSourceID(seriesMap);
  return position < 1 ? VxStdString::Empty() : GetUserID(position);
}

bool VariableInfo::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VarObsInfo::VStreamableStartWrite(os) && VStreamableWrite(os);
}

bool VariableInfo::VStreamableWrite(std::ostream& os) const {
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kNumberOfTags);
  WriteToStreamDir(mUnit, directory, d::kTagUnit);
  WriteToStreamDir(static_cast<std::int16_t>(mBlock), directory, d::kTagBlock);
  WriteToStreamDir(mRecipe, directory, d::kTagRecipe);
  WriteToStreamDir(mSourceModel, directory, d::kTagSourceModel);
  WriteToStreamDir(static_cast<std::int16_t>(mType), directory, d::kTagType);
  WriteToStreamDir(mReference, directory, d::kTagReference);
  WriteToStreamDir(mClasses, directory, d::kTagClasses);
  WriteToStreamDir(mTreatment, directory, d::kTagTreatment);
  WriteToStreamDir(mMaturity, directory, d::kTagMaturity);
  return directory.Close();
}

bool VariableInfo::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kVersion) return false;
  return VarObsInfo::VStreamableStartRead(is) && ReadStreamDirectory(is);
}

bool VariableInfo::ReadStreamDirectory(std::istream& is) {
  namespace d = ncds::detail;
  InputStreamDirectory directory(is);
  bool ok = true;
  try {
    std::string unit;
    std::string recipe;
    std::int16_t block = 0;
    std::int16_t type = 0;
    std::int32_t sourceModel = -1;
    std::int32_t reference = 0;
    std::int32_t treatment = kDefaultTreatment;
    std::set<int> classes;
    float maturity = -99.0F;
    ReadFromStreamDir(unit, directory, d::kTagUnit, true);
    ReadFromStreamDir(block, directory, d::kTagBlock, true);
    ReadFromStreamDir(recipe, directory, d::kTagRecipe, true);
    ReadFromStreamDir(sourceModel, directory, d::kTagSourceModel, true);
    ReadFromStreamDir(type, directory, d::kTagType, true);
    ReadFromStreamDir(reference, directory, d::kTagReference, true);
    ReadFromStreamDir(classes, directory, d::kTagClasses, false);
    ReadFromStreamDir(treatment, directory, d::kTagTreatment, false);
    ReadFromStreamDir(maturity, directory, d::kTagMaturity, false);
    mUnit = std::move(unit);
    mRecipe = std::move(recipe);
    mBlock = static_cast<EVariableBlock>(block);
    mType = static_cast<EVariableType>(type);
    mSourceModel = sourceModel;
    mReference = reference;
    mTreatment = treatment;
    mClasses = std::move(classes);
    mMaturity = maturity;
    RepairModelVariable();
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  return ok && static_cast<bool>(is);
}

void VariableInfo::RepairModelVariable() {
  if (mReference >= 1 || mSourceModel < 1 || GetNumIDs() == 0) return;
  int model = 0;
  int component = 0;
  const char* id = GetPrimaryAlias().c_str();
  if (std::sscanf(id, "$M%i.t%i", &model, &component) == 2) {
    mReference = component;
    mType = eScore;
  } else if (std::sscanf(id, "$M%i.XVarRes%i", &model, &component) == 2) {
    mReference = component;
    mType = eXResidual;
  }
}

void VariableInfo::VStreamableReset() const {
  mGuard.Reset();
  VarObsInfo::VStreamableReset();
}
