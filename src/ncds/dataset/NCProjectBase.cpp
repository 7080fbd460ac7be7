#include "ncds/dataset/NCProjectBase.h"

NCProjectBase::~NCProjectBase() = default;
