#include "ncds/metadata/AliasAccess.h"

#include <boost/format.hpp>

#include "ncds/foundations/Messages.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/VarObs.h"
#include "ncds/metadata/VarObsInfo.h"

namespace ncds::detail {
namespace {

// `text` with its "%1%" filled by `index`; a translation that lost or gained placeholders
// still gives a text instead of an exception.
std::string FormatIndex(const std::string& text, int index) {
  boost::format format(text);
  format.exceptions(boost::io::no_error_bits);
  return (format % index).str();
}

}  // namespace
}  // namespace ncds::detail

AliasAccess::AliasAccess(const VarObs& container)
    : mContainer(&container),
      mUsedAliases(container.GetAllUsedAliases()),
      mIsVariable(dynamic_cast<const NCVariables*>(&container) != nullptr) {}

int AliasAccess::SizeAliases() const { return mContainer->SizeAliases(); }

std::string AliasAccess::GetRawAliasName(int series) const {
  if (series < 1 || series > SizeAliases()) return std::string();
  std::string label = mContainer->GetIDLabelRaw(series);
  if (!label.empty()) return label;
  return ncds::detail::FormatIndex(
      NCMessages::Translate("Default name of series of variable/observation IDs, %1% = index",
                            "Sec. ID:%1%"),
      series);
}

std::string AliasAccess::GetAliasNameWithDescription(int series) const {
  if (series < 1 || series > SizeAliases()) return std::string();
  if (series == 1) {
    return mIsVariable
               ? NCMessages::Translate("Name of a series of variable IDs", "Var ID (Primary)")
               : NCMessages::Translate("Name of primary series of variable IDs",
                                       "Obs ID (Primary)");
  }
  const std::string description =
      mIsVariable
          ? NCMessages::Translate("Name of a series of variable IDs, %1% = index", "Var ID (%1%)")
          : NCMessages::Translate("Observation ID, %1% = index", "Obs ID (%1%)");
  return ncds::detail::FormatIndex(description, series) + ": " + GetRawAliasName(series);
}

const std::string& AliasAccess::GetAlias(int series, const VarObsInfo& info) const {
  return info.GetUserID(series);
}

float AliasAccess::GetAliasAsFloat(int series, const VarObsInfo& info) const {
  return info.GetUserFloatID(series);
}

const std::string& AliasAccess::GetPreferredAlias(int series, const VarObsInfo& info) const {
  const std::string& id = info.GetUserID(series);
  return id.empty() ? info.GetUserID(1) : id;
}

bool AliasAccess::IsAliasNumeral(int series) const { return mContainer->IsIDNumeral(series); }

NCDataVector<float> AliasAccess::GetNumeralValues(
    int series, const NCIntegralVector<unsigned long, 0>* uniqueIDs) const {
  return mContainer->GetNumeralValues(series, uniqueIDs);
}
