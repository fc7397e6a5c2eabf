#include "Store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "TempDir.h"

namespace {

using testing::HasSubstr;
using testing::Pair;
using testing::UnorderedElementsAre;

std::string Contents(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

class Store : public testing::Test {
protected:
    std::string OpenError() const {
        try {
            const TStore store(m_File);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }

    TempDir m_Dir;
    std::string m_File = m_Dir.File("deep/er/state.sqlite");
};

TEST_F(Store, KeepsWhatItSaved) {
    {
        TStore store(m_File);
        EXPECT_TRUE(store.Load().empty());
        store.Save({{"A", "1"}, {"B", ""}});
        store.Save({{"A", "2"}, {"C", "\xC3\xA4'\";--"}});
        store.Save({});
    }
    EXPECT_THAT(TStore(m_File).Load(),
                UnorderedElementsAre(Pair("A", "2"), Pair("B", ""), Pair("C", "\xC3\xA4'\";--")));
}

TEST_F(Store, RefusesAForeignFileAndLeavesItAlone) {
    std::filesystem::create_directories(m_Dir.Path() / "deep/er");
    for (const std::string& text :
         {std::string("x"), std::string(5000, 'x'),
          std::string("SQLite format 3\0", 16) + std::string(4080, '\0')}) {
        std::ofstream(m_File, std::ios::binary | std::ios::trunc) << text;
        EXPECT_THAT(OpenError(), HasSubstr(m_File + ": not a state file of the gateway"));
        EXPECT_EQ(Contents(m_File), text);
    }
}

TEST_F(Store, RefusesAnotherVersionsFile) {
    { TStore(m_File).Save({{"A", "1"}}); }
    std::string bytes = Contents(m_File);
    bytes[63] = 9;
    std::ofstream(m_File, std::ios::binary | std::ios::trunc) << bytes;
    EXPECT_THAT(OpenError(), HasSubstr("made by another version"));
    EXPECT_EQ(Contents(m_File), bytes);
}

TEST_F(Store, RefusesADamagedFileAndLeavesItAlone) {
    TDataModel::TValues values;
    for (int i = 0; i < 1000; ++i) {
        values.emplace_back("Device.Parameter" + std::to_string(i), std::string(50, 'v'));
    }
    { TStore(m_File).Save(values); }
    const std::string good = Contents(m_File);
    std::string cut = good.substr(0, good.size() / 2);
    std::string overwritten = good;
    overwritten.replace(8192, 4096, 4096, '\xAA');
    std::string noTable = good;
    noTable.replace(100, 3996, 3996, '\0');
    for (const std::string& bytes : {cut, overwritten, noTable}) {
        std::ofstream(m_File, std::ios::binary | std::ios::trunc) << bytes;
        EXPECT_THAT(OpenError(),
                    testing::AnyOf(HasSubstr(m_File + ": damaged: "),
                                   HasSubstr(m_File + ": database disk image is malformed")));
        EXPECT_EQ(Contents(m_File), bytes);
    }
}

TEST_F(Store, RefusesAFileInUse) {
    TStore store(m_File);
    store.Save({{"A", "1"}});
    EXPECT_THAT(OpenError(), HasSubstr("locked"));
}

TEST_F(Store, SaysThatAFileCannotBeMade) {
    m_File = "/proc/nonexistent/state.sqlite";
    EXPECT_THAT(OpenError(), HasSubstr(m_File + ": unable to open database file"));
}

}  // namespace
