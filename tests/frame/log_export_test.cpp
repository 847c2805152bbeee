// The log as the product gets it: opened by the DLL's attach path from QRB.log beside
// the host executable.
#include <windows.h>

#include <gtest/gtest.h>

#include "Wrenkits.h"
#include "support/log_capture.h"

namespace {

DWORD WINAPI Idle(LPVOID) { return 0; }

TEST(DllLog, ThreadNotificationsLeaveTheLogOpen) {
    HANDLE thread = CreateThread(nullptr, 0, Idle, nullptr, 0, nullptr);
    ASSERT_NE(nullptr, thread);
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 10000));
    CloseHandle(thread);

    wrtest::LogCapture log;
    EXPECT_EQ(2u, ZN_RunProcess(L"C:\\no\\such.exe", nullptr, 1));
    EXPECT_EQ((std::vector<std::string>{"[Wrenkit] ZN_RunProcess create process C:\\no\\such.exe error: 2"}),
              log.Messages());
}

}  // namespace
