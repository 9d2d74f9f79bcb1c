// Tests of the GDI+ session stand-in: tokens, versions and the pairing of start-up and shutdown.
#include <gtest/gtest.h>

#include "platform/win32/gdiplus.h"

TEST(Gdiplus, StartupShutdownAndBadStartups) {
    int active = platform::GdiplusActiveSessions();
    Gdiplus::GdiplusStartupInput input;
    EXPECT_EQ(input.GdiplusVersion, 1u);
    ULONG_PTR token = 0;
    ASSERT_EQ(Gdiplus::GdiplusStartup(&token, &input, nullptr), Gdiplus::Ok);
    EXPECT_NE(token, 0u);
    EXPECT_EQ(platform::GdiplusActiveSessions(), active + 1);
    int ignored = platform::GdiplusIgnoredShutdowns();
    Gdiplus::GdiplusShutdown(token);
    EXPECT_EQ(platform::GdiplusActiveSessions(), active);
    EXPECT_EQ(platform::GdiplusIgnoredShutdowns(), ignored);
    Gdiplus::GdiplusShutdown(token);  // a second time: ignored
    Gdiplus::GdiplusShutdown(0);
    EXPECT_EQ(platform::GdiplusIgnoredShutdowns(), ignored + 2);

    // Bad start-ups.
    token = 77;
    input.GdiplusVersion = 4;
    EXPECT_EQ(Gdiplus::GdiplusStartup(&token, &input, nullptr), Gdiplus::UnsupportedGdiplusVersion);
    EXPECT_EQ(token, 0u);
    input.GdiplusVersion = 0;
    EXPECT_EQ(Gdiplus::GdiplusStartup(&token, &input, nullptr), Gdiplus::UnsupportedGdiplusVersion);
    input.GdiplusVersion = 1;
    EXPECT_EQ(Gdiplus::GdiplusStartup(nullptr, &input, nullptr), Gdiplus::InvalidParameter);
    EXPECT_EQ(Gdiplus::GdiplusStartup(&token, nullptr, nullptr), Gdiplus::InvalidParameter);
    input.SuppressBackgroundThread = TRUE;
    EXPECT_EQ(Gdiplus::GdiplusStartup(&token, &input, nullptr), Gdiplus::InvalidParameter);
    Gdiplus::GdiplusStartupOutput output;
    ASSERT_EQ(Gdiplus::GdiplusStartup(&token, &input, &output), Gdiplus::Ok);
    ASSERT_NE(output.NotificationHook, nullptr);
    ULONG_PTR hookToken = 5;
    EXPECT_EQ(output.NotificationHook(&hookToken), Gdiplus::Ok);
    output.NotificationUnhook(hookToken);
    Gdiplus::GdiplusShutdown(token);
}
