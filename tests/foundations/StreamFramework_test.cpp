#include <gtest/gtest.h>

#include "ncds/ncds.h"

TEST(StreamFramework, Placeholder) { SUCCEED(); }
