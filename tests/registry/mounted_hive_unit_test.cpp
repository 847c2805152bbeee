// The scoped mount every offline-hive user relies on: it unmounts what it mounted,
// and nothing else.
#include <gtest/gtest.h>

#include <string>

#include "registry/hive.h"
#include "support/registry_fixture.h"
#include "support/wine_env.h"

namespace {

using wrenkits::MountedHive;

class MountedHiveTest : public testing::Test {
protected:
    void SetUp() override {
        dir_ = wrtest::ExeDir() + L"\\mounted_hive";
        wrtest::MakeDirs(dir_);
        hive_ = dir_ + L"\\SYSTEM";
        ASSERT_TRUE(wrtest::TextHive().Key("Select").Dword("Current", 1).Write(hive_));
    }
    void TearDown() override { wrtest::RemoveTree(dir_); }
    std::wstring dir_, hive_;
};

TEST_F(MountedHiveTest, UnmountsWhenItGoesEitherWay) {
    for (wrenkits::HiveUnload unload : {wrenkits::HiveUnload::Library, wrenkits::HiveUnload::PlatformNarrow}) {
        {
            MountedHive hive(hive_.c_str(), L"ZNRegKey", unload);
            ASSERT_TRUE(hive);
            EXPECT_EQ(0u, hive.result());
            EXPECT_TRUE(wrtest::HklmKeyExists(L"ZNRegKey\\Select"));
        }
        EXPECT_FALSE(wrtest::HklmKeyExists(L"ZNRegKey"));
    }
}

TEST_F(MountedHiveTest, FailedMountNeverUnloadsTheNameItDidNotMount) {
    // Wine's unload deletes an ordinary key of that name: it stands for somebody else's mount.
    HKEY other = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyW(HKEY_LOCAL_MACHINE, L"ZNRegKey", &other));
    RegCloseKey(other);
    {
        MountedHive hive(hive_.c_str(), L"ZNRegKey");
        EXPECT_FALSE(hive);
        EXPECT_EQ(static_cast<DWORD>(ERROR_ALREADY_EXISTS), hive.result());
        EXPECT_EQ(0u, hive.Unmount());
    }
    EXPECT_TRUE(wrtest::HklmKeyExists(L"ZNRegKey"));
    wrtest::RemoveHklmKey(L"ZNRegKey");
}

TEST_F(MountedHiveTest, EarlyUnmountHappensOnce) {
    MountedHive hive(hive_.c_str(), L"ZNRegKey");
    ASSERT_TRUE(hive);
    EXPECT_EQ(0u, hive.Unmount());
    EXPECT_FALSE(wrtest::HklmKeyExists(L"ZNRegKey"));
    EXPECT_EQ(0u, hive.Unmount()) << "nothing left to unmount";
}

}  // namespace
