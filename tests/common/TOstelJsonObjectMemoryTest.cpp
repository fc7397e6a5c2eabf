#include <gtest/gtest.h>

#include "ScarceHeap.h"
#include "TOstelJsonObject.h"

using ScarceHeap::TFailures;

namespace {

// Names and values of many lengths, so that any part of the text may be that which finds no memory.
TOstelJsonObject Varied() {
    TOstelJsonObject object;
    for (std::size_t length = 1; length < 50; ++length) {
        object.SetPropertyValue(std::string(length, 'n'), std::string(50 - length, 'v'));
    }
    return object;
}

TEST(TOstelJsonObjectWithoutMemory, IsEncodedWholeOrAsTheEmptyText) {
    if (!ScarceHeap::IS_HERE) {
        GTEST_SKIP() << "the sanitizers have an allocator of their own";
    }
    const TOstelJsonObject object = Varied();
    const std::string whole = object.EncodeToString(-1);
    for (const TFailures failures : {TFailures::ONE, TFailures::ALL_THAT_FOLLOW}) {
        std::size_t count = 0;
        for (bool hasFailed = true; hasFailed; ++count) {
            const long held = ScarceHeap::Held();
            ScarceHeap::FailAfter(count, failures);
            {
                const std::string text = object.EncodeToString(-1);
                hasFailed = ScarceHeap::GoOn();
                EXPECT_EQ(text, hasFailed ? "" : whole) << count;
            }
            EXPECT_EQ(ScarceHeap::Held(), held) << count;
        }
        EXPECT_GT(count, 5U);
    }
}

}  // namespace
