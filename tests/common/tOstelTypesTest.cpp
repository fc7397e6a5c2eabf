#include "tOstelTypes.h"

#include <gtest/gtest.h>

#include <typeinfo>

#include "OstelGenericUtils.h"

extern "C" int SumOfTypes(void);

TEST(tOstelTypes, AreUsableFromC) {
    EXPECT_EQ(SumOfTypes(), 17 - 1 + 6 + 0 + 4);
}

TEST(tOstelTypes, KeepTheirRuntimeNamesAndTheSizeOfInt) {
    using OstelGenericUtils::DemangleTypeName;
    EXPECT_EQ(DemangleTypeName(typeid(tOstelClientId).name()), "tOstelClientId");
    EXPECT_EQ(DemangleTypeName(typeid(tOstelReturnCode).name()), "tOstelReturnCode");
    EXPECT_EQ(DemangleTypeName(typeid(tOstelPltEventType).name()), "tOstelPltEventType");
    EXPECT_EQ(DemangleTypeName(typeid(tOstelAppEventType).name()), "tOstelAppEventType");
    EXPECT_EQ(DemangleTypeName(typeid(tOstelAppClientDeviceState).name()),
              "tOstelAppClientDeviceState");
    EXPECT_EQ(sizeof(tOstelReturnCode), sizeof(int));
}
