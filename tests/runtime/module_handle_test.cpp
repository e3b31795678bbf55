// The library's module handle is the dynamic loader's own handle of it: a caller can
// look the library's exports up through it.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <kelp/kelp.h>

#include "runtime/kelpos.h"

TEST(ModuleHandle, IsTheLoadersHandleAndFindsTheExports) {
    void* handle = kelp::GetKELPModule();
    ASSERT_NE(handle, nullptr);
    // This program has the library's objects linked in: the library's handle is the
    // program's own.
    void* program = dlopen(nullptr, RTLD_LAZY);
    ASSERT_EQ(handle, program);
    dlclose(program);

    void* const exported = reinterpret_cast<void*>(&KXCONVCreateConversionManager);
    EXPECT_EQ(dlsym(handle, "KXCONVCreateConversionManager"), exported);
    EXPECT_EQ(kelp::os::GetSymbol(handle, "KXCONVCreateConversionManager"), exported);
    EXPECT_EQ(dlsym(handle, "no such symbol in kelp"), nullptr);
    // The handle is not a reference: the library stays loaded and its handle the same.
    EXPECT_EQ(kelp::GetKELPModule(), handle);
}

TEST(ModuleHandle, OfAnAddressIsTheHandleOfTheObjectHoldingIt) {
    // A shared library's handle, as dlopen gives it to anyone who asks for it by name.
    void* libc = dlopen("libc.so.6", RTLD_NOLOAD | RTLD_LAZY);
    ASSERT_NE(libc, nullptr);
    const void* inLibc = dlsym(libc, "getpid");
    ASSERT_NE(inLibc, nullptr);
    EXPECT_EQ(kelp::os::ModuleHandleOf(inLibc), libc);
    dlclose(libc);
    // Memory that no loaded object holds.
    int onTheStack = 0;
    EXPECT_EQ(kelp::os::ModuleHandleOf(&onTheStack), nullptr);
}
