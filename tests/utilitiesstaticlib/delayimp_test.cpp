// Tests of the delay-load helper with the filter library's hook installed: a function of a
// library found only in the driver directory binds on its first call, binds again after the
// library was unloaded, and a missing library or function is reported; releasing a loader
// unloads what the helper bound for it and logs it.

#include <gtest/gtest.h>

#include "loadertestsupport.h"
#include "platform/win32/delayimp.h"
#include "platform/win32/modules.h"
#include "support/utilities/exceptions.h"
#include "utilitiesstaticlib/dlldelayloader.h"

namespace {

using namespace loadertest;

class DelayLoadHelperTest : public ::testing::Test {
protected:
    void SetUp() override {
        InstallDllDelayLoaderHook();
        m_root = MakeScratchDirectory("helper");
        m_driverEnvironment.emplace("FU_PRINTER_DRIVER_DIRECTORY", (m_root / "driver").string());
    }
    void TearDown() override {
        m_driverEnvironment.reset();
        fs::remove_all(m_root);
    }
    std::string ProbeInDriverDirectory(const char* tag) {
        std::string name = "libhelper-" + std::string(tag) + "-" + std::to_string(getpid()) + ".so";
        CopyProbe(m_root / "driver" / "3" / name);
        return name;
    }

    fs::path m_root;
    std::optional<ScopedEnvironment> m_driverEnvironment;
};

TEST_F(DelayLoadHelperTest, FirstCallBindsThroughTheHookAndLaterCallsReuseIt) {
    EXPECT_EQ(__pfnDliNotifyHook2, &ZDliNotifyHook2);
    std::string name = ProbeInDriverDirectory("bind");
    static std::string library;
    library = name;
    static platform::DelayLoadedFunction<int()> answer(library.c_str(), "DelayProbeAnswer");
    EXPECT_FALSE(platform::IsModuleLoaded(name.c_str()));
    EXPECT_EQ(answer(), 42);
    HMODULE bound = platform::GetDelayLoadedModule(name.c_str());
    ASSERT_NE(bound, nullptr);
    EXPECT_TRUE(platform::IsModuleLoaded(name.c_str()));
    std::vector<std::string> recorded = DllDelayLoader::GetProcessLoader().GetLoadedLibraryNames();
    EXPECT_NE(std::find(recorded.begin(), recorded.end(), name), recorded.end());
    EXPECT_EQ(answer(), 42);
    EXPECT_EQ(platform::GetDelayLoadedModule(name.c_str()), bound);

    // Unloaded through the helper: gone, and the next call binds again.
    EXPECT_TRUE(__FUnloadDelayLoadedDLL2(name.c_str()));
    EXPECT_FALSE(__FUnloadDelayLoadedDLL2(name.c_str()));
    EXPECT_EQ(platform::GetDelayLoadedModule(name.c_str()), nullptr);
    EXPECT_FALSE(platform::IsModuleLoaded(name.c_str()));
    EXPECT_EQ(answer(), 42);
    EXPECT_TRUE(platform::IsModuleLoaded(name.c_str()));
    EXPECT_TRUE(__FUnloadDelayLoadedDLL2(name.c_str()));
    std::vector<std::string> again = DllDelayLoader::GetProcessLoader().GetLoadedLibraryNames();
    EXPECT_EQ(std::count(again.begin(), again.end(), name), 1);
}

TEST_F(DelayLoadHelperTest, MissingLibraryOrFunctionIsReported) {
    platform::DelayLoadedFunction<int()> answer("libhelper-nowhere.so", "DelayProbeAnswer");
    EXPECT_THROW(answer(), ExceptionDelayLoadDllLoadFailure);  // raised through the hook
    EXPECT_EQ(platform::GetDelayLoadedModule("libhelper-nowhere.so"), nullptr);
    std::string name = ProbeInDriverDirectory("noproc");
    platform::DelayLoadedFunction<int()> missing(name.c_str(), "NoSuchFunction");
    try {
        missing();
        ADD_FAILURE() << "no exception";
    } catch (const platform::DelayLoadError& error) {
        EXPECT_EQ(error.GetError(), ERROR_PROC_NOT_FOUND);
        EXPECT_EQ(error.GetLibrary(), name);
        EXPECT_EQ(error.GetProcedure(), "NoSuchFunction");
    }
    EXPECT_TRUE(__FUnloadDelayLoadedDLL2(name.c_str()));  // the library itself was bound
}

TEST_F(DelayLoadHelperTest, WithoutAHookTheHelperLoadsByNameAndFailsInItsOwnWay) {
    PfnDliHook saved = __pfnDliNotifyHook2;
    __pfnDliNotifyHook2 = nullptr;
    std::string name = ProbeInDriverDirectory("nohook");
    platform::DelayLoadedFunction<int()> answer(name.c_str(), "DelayProbeAnswer");
    try {
        answer();
        ADD_FAILURE() << "the driver directory is the hook's idea, not the helper's";
    } catch (const platform::DelayLoadError& error) {
        EXPECT_EQ(error.GetError(), ERROR_MOD_NOT_FOUND);
    }
    const std::string path = (m_root / "driver" / "3" / name).string();
    platform::DelayLoadedFunction<int()> byPath(path.c_str(), "DelayProbeAnswer");
    EXPECT_EQ(byPath(), 42);
    EXPECT_TRUE(__FUnloadDelayLoadedDLL2(path.c_str()));
    __pfnDliNotifyHook2 = saved;
}

// Forwards the helper's notifications to a loader of the test's own.
DllDelayLoader* g_testLoader = nullptr;
FARPROC WINAPI TestHook(unsigned notification, PDelayLoadInfo info) {
    return g_testLoader->Notify(notification, info);
}

TEST_F(DelayLoadHelperTest, ReleaseUnloadsWhatTheHelperBoundAndLogsIt) {
    std::string name = ProbeInDriverDirectory("release");
    HMODULE self = GetModuleHandleA(nullptr);
    char selfPath[4096];
    GetModuleFileNameA(self, selfPath, sizeof selfPath);
    std::string selfName = fs::path(selfPath).filename().string();
    {
        DllDelayLoader loader;
        loader.OnProcessAttach(self);
        g_testLoader = &loader;
        PfnDliHook saved = __pfnDliNotifyHook2;
        __pfnDliNotifyHook2 = &TestHook;
        platform::DelayLoadedFunction<int()> answer(name.c_str(), "DelayProbeAnswer");
        EXPECT_EQ(answer(), 42);
        __pfnDliNotifyHook2 = saved;
        EXPECT_TRUE(platform::IsModuleLoaded(name.c_str()));
        CapturedMessages messages;
        loader.Release();
        EXPECT_TRUE(messages.Contains("<<@@@ " + selfName + ": Released Delay Loaded dll, " + name))
            << messages.Text();
        EXPECT_FALSE(platform::IsModuleLoaded(name.c_str()));
        g_testLoader = nullptr;
    }  // the destructor does not release again
    EXPECT_EQ(platform::GetDelayLoadedModule(name.c_str()), nullptr);
}

}  // namespace
