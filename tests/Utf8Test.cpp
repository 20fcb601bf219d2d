#include <gtest/gtest.h>

#include "Utf8Cases.h"

TEST(Utf8, convertsBothWaysOnTheHostsWideText)
{
    EXPECT_EQ(utf8Failures(), std::vector<std::string>{});
}
