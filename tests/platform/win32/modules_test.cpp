// Tests of the module-loading stand-ins: handles are module base addresses, names are compared
// as Windows compares them, references are counted, and bad handles are rejected.

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstring>
#include <string>

#include "platform/win32/kernel.h"
#include "platform/win32/modules.h"

namespace {

// A system library the test program does not load by itself (libzip's bzip2 support; nothing
// the platform library links).
constexpr const char* kLibrary = "libbz2.so.1.0";

TEST(ModulesTest, ProgramKernel32AndHandlesFromAddresses) {
    HMODULE program = GetModuleHandleA(nullptr);
    ASSERT_NE(program, nullptr);
    char path[4096];
    DWORD length = GetModuleFileNameA(nullptr, path, sizeof path);
    ASSERT_GT(length, 0u);
    EXPECT_EQ(std::strlen(path), length);
    EXPECT_NE(std::string(path).find("platform_tests"), std::string::npos);
    EXPECT_EQ(GetModuleFileNameA(program, path, sizeof path), length);

    // kernel32 is the module of the stand-ins; it exports GetModuleHandleExA.
    HMODULE kernel = GetModuleHandleW(L"KERNEL32.DLL");
    ASSERT_NE(kernel, nullptr);
    EXPECT_EQ(GetModuleHandleA("kernel32"), kernel);
    auto function = GetProcAddress(kernel, "GetModuleHandleExA");
    EXPECT_EQ(reinterpret_cast<void*>(function), reinterpret_cast<void*>(&GetModuleHandleExA));
    GetModuleFileNameA(kernel, path, sizeof path);
    EXPECT_NE(std::string(path).find("libfuplatform"), std::string::npos);

    // A handle from an address and from a name.
    HMODULE fromAddress = nullptr;
    ASSERT_TRUE(GetModuleHandleExA(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<LPCSTR>(&LoadLibraryA), &fromAddress));
    EXPECT_EQ(fromAddress, GetModuleHandleW(L"kernel32.dll"));
    // The base address is where the module's ELF header is mapped.
    EXPECT_EQ(std::memcmp(fromAddress, "\177ELF", 4), 0);
    GetModuleFileNameA(fromAddress, path, sizeof path);
    std::string name = std::string(path).substr(std::string(path).rfind('/') + 1);
    EXPECT_EQ(GetModuleHandleA(name.c_str()), fromAddress);
    EXPECT_EQ(GetModuleHandleA(path), fromAddress);  // a full path compares whole

    // The file name is cut to the buffer.
    length = GetModuleFileNameA(nullptr, path, sizeof path);
    ASSERT_GT(length, 8u);
    char small[8];
    std::memset(small, 'x', sizeof small);
    EXPECT_EQ(GetModuleFileNameA(nullptr, small, sizeof small), sizeof small);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(small[7], '\0');
    EXPECT_EQ(std::string(small), std::string(path, 7));
    // Exactly fitting (the length plus its NUL) is not cut.
    std::string exact(length + 1, 'x');
    EXPECT_EQ(GetModuleFileNameA(nullptr, exact.data(), length + 1), length);
    EXPECT_EQ(GetModuleFileNameA(nullptr, small, 0), 0u);
}

TEST(ModulesTest, LoadReferenceAndFree) {
    ASSERT_FALSE(platform::IsModuleLoaded(kLibrary)) << "the test needs a library not yet loaded";
    EXPECT_EQ(GetModuleHandleA(kLibrary), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);

    HMODULE module = LoadLibraryA(kLibrary);
    ASSERT_NE(module, nullptr) << platform::GetLastModuleError();
    EXPECT_EQ(GetModuleHandleA("LIBBZ2.SO.1.0"), module);  // names compare without case
    EXPECT_NE(GetProcAddress(module, "BZ2_bzlibVersion"), nullptr);
    EXPECT_EQ(GetProcAddress(module, "noSuchFunction"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    EXPECT_EQ(GetProcAddress(module, reinterpret_cast<LPCSTR>(7)), nullptr);  // ordinal

    // A second reference (GetModuleHandleExA without UNCHANGED_REFCOUNT) keeps it loaded after
    // the first is freed.
    HMODULE again = nullptr;
    ASSERT_TRUE(GetModuleHandleExA(0, kLibrary, &again));
    EXPECT_EQ(again, module);
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_TRUE(platform::IsModuleLoaded(kLibrary));
    EXPECT_TRUE(FreeLibrary(again));
    EXPECT_FALSE(platform::IsModuleLoaded(kLibrary));
    EXPECT_FALSE(FreeLibrary(module));
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
}

TEST(ModulesTest, BadArgumentsAreRejected) {
    EXPECT_EQ(LoadLibraryA(nullptr), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(LoadLibraryA("/no/such/dir/libnothing.so"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_FALSE(platform::GetLastModuleError().empty());
    int fileHandle = 0;
    EXPECT_EQ(LoadLibraryExA(kLibrary, &fileHandle, 0), nullptr);
    EXPECT_EQ(LoadLibraryExA(kLibrary, nullptr, 0x2), nullptr);  // LOAD_LIBRARY_AS_DATAFILE

    // Addresses that are not module bases: inside a module, on the heap, null.
    int local = 0;
    auto inside =
        reinterpret_cast<HMODULE>(reinterpret_cast<char*>(GetModuleHandleA(nullptr)) + 16);
    for (HMODULE bad : {inside, static_cast<HMODULE>(&local), static_cast<HMODULE>(nullptr)}) {
        char path[64] = "unchanged";
        EXPECT_EQ(GetModuleFileNameA(bad == nullptr ? inside : bad, path, sizeof path), 0u);
        EXPECT_EQ(GetProcAddress(bad, "malloc"), nullptr);
        EXPECT_FALSE(FreeLibrary(bad));
    }
    HMODULE module = reinterpret_cast<HMODULE>(1);
    EXPECT_FALSE(GetModuleHandleExA(0, "libnothing.so", &module));
    EXPECT_EQ(module, nullptr);
    EXPECT_FALSE(GetModuleHandleExA(0x80, nullptr, &module));
    EXPECT_FALSE(GetModuleHandleExA(0, nullptr, nullptr));
}

}  // namespace
