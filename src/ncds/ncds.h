#ifndef NCDS_NCDS_H
#define NCDS_NCDS_H

// Every public header of the library.

#include "ncds/foundations/BoolVector.h"
#include "ncds/foundations/DatasetMergeInfo.h"
#include "ncds/foundations/DateTimeFormatter.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/ExceptionMessageList.h"
#include "ncds/foundations/FactoryRepository.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/Messages.h"
#include "ncds/foundations/NCDataMatrix.h"
#include "ncds/foundations/NCDataVector.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/NCProgress.h"
#include "ncds/foundations/NCSignals.h"
#include "ncds/foundations/NCStringVector.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/SimpDateTime.h"
#include "ncds/foundations/SimpDuration.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/UserComm.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamLight.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/foundations/VxString.h"
#include "ncds/foundations/VxTimeUtl.h"

#endif  // NCDS_NCDS_H
