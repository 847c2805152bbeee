// The bare narrow unmount that one caller elsewhere relies on: no export of this
// subsystem takes that path.
#include <gtest/gtest.h>

#include "registry/hive.h"
#include "support/registry_fixture.h"
#include "support/wine_env.h"

TEST(MountedHive, NarrowUnmountUnloadsWhatItMounted) {
    const std::wstring dir = wrtest::ExeDir() + L"\\mounted_hive";
    ASSERT_TRUE(wrtest::TextHive().Key("Select").Write(dir + L"\\SYSTEM"));
    {
        wrenkits::MountedHive hive((dir + L"\\SYSTEM").c_str(), L"ZNRegKey", wrenkits::HiveUnload::PlatformNarrow);
        EXPECT_TRUE(wrtest::HklmKeyExists(L"ZNRegKey\\Select"));
    }
    EXPECT_FALSE(wrtest::HklmKeyExists(L"ZNRegKey"));
    wrtest::RemoveTree(dir);
}
