#include "Store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "TempDir.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::UnorderedElementsAre;

std::string Contents(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

TDataModel::TChanges Writes(const TDataModel::TValues& values) {
    return {values, {}, {}};
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

    // What a gateway would find that started now.
    std::string Copy() const {
        std::filesystem::copy_file(m_File, m_File + ".copy");
        return m_File + ".copy";
    }

    TempDir m_Dir;
    std::string m_File = m_Dir.File("deep/er/state.sqlite");
};

TEST_F(Store, KeepsWhatItSaved) {
    {
        TStore store(m_File);
        EXPECT_TRUE(store.Load().values.empty());
        store.Save(Writes({{"A", "1"}, {"B", ""}}));
        store.Save(Writes({{"A", "2"}, {"C", "\xC3\xA4'\";--"}}));
        store.Save({});
    }
    EXPECT_THAT(TStore(m_File).Load().values,
                UnorderedElementsAre(Pair("A", "2"), Pair("B", ""), Pair("C", "\xC3\xA4'\";--")));
}

TEST_F(Store, KeepsWhichInstancesCameAndWent) {
    {
        TStore store(m_File);
        store.Save({{{"T.1.A", "1"}, {"T.10.A", "10"}, {"T.1.U.2.B", "x"}, {"T.2.A", "2"}},
                    {"T.10.", "T.2.", "T.2.U.1."},
                    {"T.3."}});
        store.Save({{}, {}, {"T.1.", "T.2."}});
    }
    const TStore::TState state = TStore(m_File).Load();
    EXPECT_THAT(state.instances, ElementsAre(Pair("T.1.", false), Pair("T.10.", true),
                                             Pair("T.2.", false), Pair("T.3.", false)));
    EXPECT_THAT(state.values, ElementsAre(Pair("T.10.A", "10")));
}

// As on a full disk: the file may not grow.
class TFullDisk {
public:
    explicit TFullDisk(const std::string& file) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_Before);
        const rlimit limit = {static_cast<rlim_t>(std::filesystem::file_size(file)),
                              m_Before.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    TFullDisk(const TFullDisk&) = delete;
    TFullDisk& operator=(const TFullDisk&) = delete;
    ~TFullDisk() { setrlimit(RLIMIT_FSIZE, &m_Before); }

private:
    rlimit m_Before{};
};

TEST_F(Store, SavesNothingOnAFullDiskAndGoesOnWhenThereIsRoom) {
    const TDataModel::TChanges large = Writes({{"A", "2"}, {"B", std::string(100000, 'b')}});
    {
        TStore store(m_File);
        store.Save(Writes({{"A", "1"}}));
        {
            const TFullDisk disk(m_File);
            EXPECT_THROW(store.Save(large), std::runtime_error);
            EXPECT_THAT(store.Load().values, ElementsAre(Pair("A", "1")));
        }
        EXPECT_THAT(TStore(Copy()).Load().values, ElementsAre(Pair("A", "1")));
        store.Save(large);
    }
    EXPECT_THAT(TStore(m_File).Load().values,
                ElementsAre(Pair("A", "2"), Pair("B", testing::SizeIs(100000))));
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
    { TStore(m_File).Save(Writes({{"A", "1"}})); }
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
    { TStore(m_File).Save(Writes(values)); }
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

// As between the writing of the tables and the end of the journal, which says that there was
// nothing before: a mark, no records, a seed, no pages, and the sizes of sectors and pages.
TEST_F(Store, BeginsAgainWhenItsFirstStartWasKilled) {
    { const TStore store(m_File); }
    std::string journal(
        "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7"
        "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x02\0\0\0\x10\0",
        28);
    journal.resize(512);
    std::ofstream(m_File + "-journal", std::ios::binary) << journal;
    {
        TStore store(m_File);
        EXPECT_TRUE(store.Load().values.empty());
        store.Save(Writes({{"A", "1"}}));
    }
    EXPECT_THAT(TStore(m_File).Load().values, ElementsAre(Pair("A", "1")));
}

TEST_F(Store, RefusesAFileInUse) {
    TStore store(m_File);
    store.Save(Writes({{"A", "1"}}));
    EXPECT_EQ(OpenError(), m_File + ": in use by another gateway");
}

TEST_F(Store, SaysThatAFileCannotBeMade) {
    m_File = "/proc/nonexistent/state.sqlite";
    EXPECT_THAT(OpenError(), HasSubstr(m_File + ": unable to open database file"));
}

}  // namespace
