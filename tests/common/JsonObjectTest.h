#ifndef JSON_OBJECT_TEST_H
#define JSON_OBJECT_TEST_H

#include <gtest/gtest.h>

#include <string>

#include "TOstelJsonObject.h"

namespace JsonObjectTest {

using TJson = TOstelJsonObject;

inline TJson Decoded(const std::string& text) {
    TJson object;
    EXPECT_TRUE(object.DecodeFromString(text)) << object.GetErrorText();
    return object;
}

inline std::string Encoded(const TJson& object) {
    return object.EncodeToString(-1);
}

// An object that holds no value at all.
inline TJson Nothing() {
    return TJson().GetObjectRef("missing");
}

}  // namespace JsonObjectTest

#endif
