#ifndef OSTEL_APP_LIB_TEST_H
#define OSTEL_APP_LIB_TEST_H

#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "ApplicationTest.h"
#include "ostelAppLib.h"

// The flat interface over the application object of ApplicationTest.
class OstelAppLib : public ApplicationTest {
protected:
    template <typename T>
    static T Named(const std::string& name) {
        T request = {};
        name.copy(request.name, sizeof request.name);
        return request;
    }

    static std::string Param(const std::string& name, const std::string& value) {
        return R"({"NAME":")" + name + R"(","VALUE":")" + value + R"("})";
    }

    // An array of elements without values.
    static void Fill(tOstelAppLibParamArray& array, std::initializer_list<const char*> names) {
        ostelAppLibAllocateParamArray(&array, static_cast<std::uint32_t>(names.size()));
        tOstelAppLibParam* param = array.params;
        for (const char* name : names) {
            *param = {};
            std::strcpy(param++->name, name);
        }
    }

    void AnswerParams(const std::string& type, const std::vector<std::string>& params) {
        std::string text;
        for (const std::string& param : params) {
            text += (text.empty() ? "" : ",") + param;
        }
        m_Dispatcher.Answer(type, R"({"PARAMS":[)" + text + "]}");
    }
};

#endif
