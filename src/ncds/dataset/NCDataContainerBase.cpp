#include "ncds/dataset/NCDataContainerBase.h"

#include "ncds/batch/BatchInfoVector.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/foundations/detail/OneBased.h"
#include "ncds/metadata/AliasAccess.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"

using ncds::detail::ToPosition;

NCDataContainerBase::NCDataContainerBase(boost::shared_ptr<NCProjectBase> project)
    : mProject(project) {}

NCDataContainerBase::~NCDataContainerBase() = default;

boost::shared_ptr<NCProjectBase> NCDataContainerBase::GetProject() { return mProject.lock(); }

boost::shared_ptr<NCProjectBase const> NCDataContainerBase::GetProject() const {
  return mProject.lock();
}

int NCDataContainerBase::SizeObservations() const {
  return static_cast<int>(GetObservationInfoVector().size());
}

int NCDataContainerBase::SizeVariables() const { return static_cast<int>(GetVarIDs().size()); }

unsigned long NCDataContainerBase::GetVarID(int index) const {
  const NCIntegralVector<unsigned long, 0> ids = GetVarIDs();
  std::size_t position = 0;
  return ToPosition(index, ids.size(), position) ? ids[position] : 0;
}

const ObservationInfo* NCDataContainerBase::GetObservationInfo(int index) const {
  return GetObservationInfoVector()[static_cast<std::size_t>(index) - 1];
}

const VariableInfo* NCDataContainerBase::GetVariableInfo(int index) const {
  const auto project = GetProject();
  return project ? project->GetVariables()[GetVarID(index)] : nullptr;
}

const std::string& NCDataContainerBase::GetObservationID(int index, int aliasSeries) const {
  const auto project = GetProject();
  std::size_t position = 0;
  if (!project || !ToPosition(index, GetObservationInfoVector().size(), position)) {
    return VxStdString::Empty();
  }
  const ObservationInfo* info = GetObservationInfoVector()[position];
  if (!info) {
    throw NCError(ExceptionMessage::translate("An observation ID could not be found."),
                  NCError::Inconsistency);
  }
  return AliasAccess(project->GetObservationIDSource()).GetAlias(aliasSeries, *info);
}

NCStringVector NCDataContainerBase::GetBatchNames() const {
  const auto batches = GetBatchInfoVector();
  return batches ? batches->GetBatchNames() : NCStringVector();
}
