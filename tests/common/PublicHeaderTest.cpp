// zorbus.h, the header hosts compile against, beside the library's own
// declarations: a C entry point declared differently in the two does not
// compile, a C++ one that differs does not link.
#include "zorbus.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "tc/frame/EntryPoints.h"

// A second declaration of these with other parameters would be an overload,
// and the address of either ambiguous.
static_assert(std::is_same_v<decltype(&CreateTestComponent), TestComponent* (*)(const std::string&)>);
static_assert(std::is_same_v<decltype(&UninitializedTCException), std::string (*)()>);

namespace {

char* NoReply(const char*) { return nullptr; }

}  // namespace

TEST(PublicHeader, AHostSessionThroughItsDeclarations) {
    Uninitialize(nullptr);
    char* before = ExecuteXMLCommand("<getDiagVersion/>");
    ASSERT_NE(before, nullptr);
    EXPECT_EQ(std::string(before), UninitializedTCException());
    FreeLastExecuteXMLCommandResult();

    Initialize("<initialize component=\"libzorbus.so\"/>");
    EXPECT_EQ(IsInitialized(), 1);
    ZorbusCallback callback = &NoReply;
    EXPECT_NE(std::string(SetCallback(callback)).find("setCallback"), std::string::npos);
    FreeLastSetCallbackResult();
    EXPECT_EQ(std::string(ExecuteXMLCommand("<getDiagVersion/>")), "<diagVersion>8.6.0.3755A</diagVersion>");
    FreeLastExecuteXMLCommandResult();
    Uninitialize(nullptr);
    EXPECT_EQ(IsInitialized(), 0);
}
