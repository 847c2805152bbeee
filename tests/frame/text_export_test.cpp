#include <gtest/gtest.h>

#include "Wrenkits.h"

TEST(Smoke, Size) {
    wchar_t t[32];
    EXPECT_GT(ZN_TranslateSize(3221225472LL, t, 32), 0);
    EXPECT_STREQ(L"3.00 G", t);
}
