// Tests of the delay-load hook: the search order (already loaded, beside this library, the
// printer driver directory's "3" subfolder), the path limit, logging, the recorded list, the
// failure exception and what happens after release.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "loadertestsupport.h"
#include "platform/win32/modules.h"
#include "support/utilities/exceptions.h"
#include "utilitiesstaticlib/dlldelayloader.h"

namespace {

using namespace loadertest;

// A loader whose utility-library name can be changed, and whose utility library may be
// delay-loaded.
class TestLoader : public DllDelayLoader {
public:
    TestLoader() = default;
    explicit TestLoader(bool utilityLibraryDelayLoaded)
        : DllDelayLoader(utilityLibraryDelayLoaded) {}
    using DllDelayLoader::SetUtilityLibraryFileName;
};

std::string ModuleFileName(HMODULE module) {
    char path[4096] = "";
    GetModuleFileNameA(module, path, sizeof path);
    return path;
}

class DllDelayLoaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_root = MakeScratchDirectory("hook");
        m_driverDirectory = m_root / "driver";
        fs::create_directories(m_driverDirectory);
        m_driverEnvironment.emplace("FU_PRINTER_DRIVER_DIRECTORY", m_driverDirectory.string());
        // "This library": a copy of the probe in a folder of its own.
        m_self = m_root / "self" / ("libself-" + Unique() + ".so");
        CopyProbe(m_self);
        m_selfModule = LoadLibraryA(m_self.c_str());
        ASSERT_NE(m_selfModule, nullptr) << platform::GetLastModuleError();
        m_loader.OnProcessAttach(m_selfModule);
    }
    void TearDown() override {
        m_driverEnvironment.reset();
        fs::remove_all(m_root);
    }

    // Library names differ between tests: the process keeps what earlier tests loaded.
    static std::string Unique() {
        static int counter = 0;
        return std::to_string(getpid()) + "-" + std::to_string(++counter);
    }
    std::string ProbeName(const char* tag) {
        return "libprobe-" + std::string(tag) + Unique() + ".so";
    }

    HMODULE Request(const std::string& name) { return Request(m_loader, name); }
    static HMODULE Request(DllDelayLoader& loader, const std::string& name) {
        DelayLoadInfo info{};
        info.cb = sizeof info;
        info.szDll = name.c_str();
        info.dlp.fImportByName = TRUE;
        info.dlp.szProcName = "DelayProbeAnswer";
        return reinterpret_cast<HMODULE>(loader.Notify(dliNotePreLoadLibrary, &info));
    }

    fs::path m_root, m_driverDirectory, m_self;
    HMODULE m_selfModule = nullptr;
    std::optional<ScopedEnvironment> m_driverEnvironment;
    TestLoader m_loader;
};

// Beside this library first, then the driver directory's "3" subfolder (not the directory
// itself); each attempt is logged with the path tried.
TEST_F(DllDelayLoaderTest, FoundBesideThisLibraryOrInTheDriverDirectorySubfolder3) {
    for (const bool beside : {true, false}) {
        SCOPED_TRACE(beside ? "beside" : "driver directory");
        TestLoader loader;
        loader.OnProcessAttach(m_selfModule);
        std::string name = ProbeName("found");
        fs::path expected = beside ? m_self.parent_path() / name : m_driverDirectory / "3" / name;
        CopyProbe(expected);
        CopyProbe(m_driverDirectory / name);
        CapturedMessages messages;
        HMODULE module = Request(loader, name);
        ASSERT_NE(module, nullptr);
        EXPECT_EQ(ModuleFileName(module), expected.string());
        std::string first = "@@@>> " + m_self.filename().string() + ": Delay loading DLL: " + name;
        EXPECT_TRUE(messages.Contains(first + (beside ? " (" + expected.string() + ")" : "")))
            << messages.Text();
        EXPECT_EQ(
            messages.Contains("Delay loading DLL: " + m_driverDirectory.string() + "\\3\\" + name),
            !beside);
        EXPECT_EQ(loader.GetLoadedLibraryNames(), std::vector<std::string>{name});
    }
}

TEST_F(DllDelayLoaderTest, AlreadyLoadedLibraryIsReferencedNotSearchedAndRecordedOnce) {
    std::string name = ProbeName("loaded");
    fs::path elsewhere = m_root / "elsewhere" / name;
    CopyProbe(elsewhere);
    CopyProbe(m_self.parent_path() / name);  // would be found beside, were it searched
    HMODULE loaded = LoadLibraryA(elsewhere.c_str());
    ASSERT_NE(loaded, nullptr);
    CapturedMessages messages;
    EXPECT_EQ(Request(name), loaded);
    EXPECT_EQ(Request(name), loaded);
    EXPECT_EQ(Request(name), loaded);
    EXPECT_FALSE(messages.Contains("Delay loading DLL")) << messages.Text();
    EXPECT_EQ(m_loader.GetLoadedLibraryNames(), std::vector<std::string>{name});
    // Each request took a reference: four releases unload it, not fewer.
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(FreeLibrary(loaded));
    EXPECT_TRUE(platform::IsModuleLoaded(name.c_str()));
    EXPECT_TRUE(FreeLibrary(loaded));
    EXPECT_FALSE(platform::IsModuleLoaded(name.c_str()));
}

TEST_F(DllDelayLoaderTest, CoreLibraryAbsentFromBothPlacesThrows) {
    std::string name = ProbeName("absent");
    try {
        Request(name);
        FAIL() << "no exception";
    } catch (const ExceptionDelayLoadDllLoadFailure& failure) {
        EXPECT_EQ(failure.GetFunction(), CXString(L"ThrowDelayLoadDllLoadFailureException"));
        EXPECT_TRUE(failure.GetMessage().IsEmpty());
        EXPECT_NE(failure.GetFile().Find(L"dlldelayloader"), -1);
    }
    EXPECT_TRUE(m_loader.GetLoadedLibraryNames().empty());
}

TEST_F(DllDelayLoaderTest, UtilityLibraryFailureReturnsNullAndItsLoadIsNotLogged) {
    std::string utility = ProbeName("utilities");
    m_loader.SetUtilityLibraryFileName(utility.c_str());
    EXPECT_EQ(Request(utility), nullptr);
    std::string upper = utility;
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    EXPECT_EQ(Request(upper), nullptr);  // recognised without regard to case
    EXPECT_FALSE(m_loader.IsUtilityLibraryLoaded());

    CopyProbe(m_self.parent_path() / utility);
    CapturedMessages messages;
    EXPECT_NE(Request(utility), nullptr);
    EXPECT_TRUE(m_loader.IsUtilityLibraryLoaded());
    EXPECT_FALSE(messages.Contains("Delay loading DLL")) << messages.Text();
}

TEST_F(DllDelayLoaderTest, ModuleDelayLoadingTheUtilityLibraryThrowsOnlyOnceItIsLoaded) {
    TestLoader loader(true);
    std::string utility = ProbeName("utilities");
    loader.SetUtilityLibraryFileName(utility.c_str());
    loader.OnProcessAttach(m_selfModule);
    std::string missing = ProbeName("missing");
    CapturedMessages messages;
    EXPECT_EQ(Request(loader, missing), nullptr);  // no utility library to build the exception

    std::string present = ProbeName("present");
    CopyProbe(m_self.parent_path() / present);
    EXPECT_NE(Request(loader, present), nullptr);
    EXPECT_FALSE(messages.Contains("Delay loading DLL")) << "loaded before the utility library";

    CopyProbe(m_self.parent_path() / utility);
    EXPECT_NE(Request(loader, utility), nullptr);
    EXPECT_TRUE(loader.IsUtilityLibraryLoaded());
    EXPECT_THROW(Request(loader, missing), ExceptionDelayLoadDllLoadFailure);
    loader.Release();
    EXPECT_FALSE(loader.IsUtilityLibraryLoaded());
}

TEST_F(DllDelayLoaderTest, PathOverTheLimitSkipsThatLocation) {
    // This library in a folder whose path is longer than 260 characters: the copy beside it is
    // not found, the one in the driver directory is.
    fs::path deep = m_root / "deep";
    while (deep.string().size() < 300) deep /= std::string(40, 'd');
    std::string name = ProbeName("long");
    fs::path deepSelf = deep / ("libself-" + Unique() + ".so");
    CopyProbe(deepSelf);
    CopyProbe(deep / name);
    HMODULE deepModule = LoadLibraryA(deepSelf.c_str());
    ASSERT_NE(deepModule, nullptr);
    TestLoader loader;
    loader.OnProcessAttach(deepModule);
    EXPECT_THROW(Request(loader, name), ExceptionDelayLoadDllLoadFailure);
    CopyProbe(m_driverDirectory / "3" / name);
    HMODULE module = Request(loader, name);
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(ModuleFileName(module), (m_driverDirectory / "3" / name).string());
}

TEST_F(DllDelayLoaderTest, DriverDirectoryPathLimitIs260Characters) {
    // A driver directory such that directory + "\3\" + name is exactly 260 characters is
    // searched; one character more and it is not.
    for (std::size_t extra : {0u, 1u}) {
        std::string name = ProbeName("limit");  // a new name: the first is loaded afterwards
        std::size_t wanted = 260 + extra - 3 - name.size();
        fs::path directory = m_root / ("limit" + std::to_string(extra));
        while (directory.string().size() + 81 < wanted) directory /= std::string(40, 'x');
        directory /= std::string(wanted - directory.string().size() - 1, 'y');
        ASSERT_EQ(directory.string().size(), wanted);
        CopyProbe(directory / "3" / name);
        ScopedEnvironment driver("FU_PRINTER_DRIVER_DIRECTORY", directory.string());
        TestLoader loader;
        loader.OnProcessAttach(m_selfModule);
        if (extra == 0) {
            EXPECT_NE(Request(loader, name), nullptr);
        } else {
            EXPECT_THROW(Request(loader, name), ExceptionDelayLoadDllLoadFailure);
        }
    }
}

TEST_F(DllDelayLoaderTest, HookActsOnlyOnPreLoadLibraryAndOnlyWhileAttached) {
    std::string first = ProbeName("first"), second = ProbeName("second");
    CopyProbe(m_self.parent_path() / first);
    CopyProbe(m_self.parent_path() / second);
    DelayLoadInfo info{};
    info.szDll = first.c_str();
    for (unsigned notification : {dliStartProcessing, dliNotePreGetProcAddress, dliFailLoadLib,
                                  dliFailGetProc, dliNoteEndProcessing}) {
        EXPECT_EQ(m_loader.Notify(notification, &info), nullptr);
    }
    EXPECT_EQ(m_loader.Notify(dliNotePreLoadLibrary, nullptr), nullptr);
    TestLoader detached;
    EXPECT_FALSE(detached.IsEnabled());
    EXPECT_EQ(Request(detached, first), nullptr);
    EXPECT_TRUE(m_loader.GetLoadedLibraryNames().empty());
    // After release: nothing loaded, not even the failure exception; a second release is harmless.
    ASSERT_NE(Request(first), nullptr);
    m_loader.Release();
    EXPECT_TRUE(m_loader.IsReleased());
    EXPECT_EQ(Request(second), nullptr);
    EXPECT_EQ(Request(ProbeName("absent")), nullptr);
    EXPECT_EQ(m_loader.GetLoadedLibraryNames(), std::vector<std::string>{first});
    m_loader.Release();
    // The process loader is attached to the module it is linked into: the test program here.
    DllDelayLoader& process = DllDelayLoader::GetProcessLoader();
    EXPECT_TRUE(process.IsEnabled());
    EXPECT_FALSE(process.IsReleased());
    EXPECT_EQ(process.GetModule(), GetModuleHandleA(nullptr));
    EXPECT_STREQ(process.GetUtilityLibraryFileName(), "libzorunutilities.so.0");
}

}  // namespace
