#include "TOstelBlob.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <memory>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <type_traits>

#include "BinaryLayout.h"
#include "OrdinaryUser.h"
#include "RecordingLog.h"
#include "TempDir.h"

struct TContainer {
    friend std::size_t OffsetOf(TContainer);
};
template struct MemberOffset<TContainer, &TOstelBlob::m_Container>;

namespace {

using TBytes = std::vector<unsigned char>;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string WITH_ZERO("a\0\xff\n", 4);

std::string Contents(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void Fill(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

TEST(TOstelBlob, CopiesAVector) {
    const TBytes bytes{1, 0, 255};
    const TOstelBlob blob(bytes);
    EXPECT_EQ(blob.GetContainer(), bytes);
    EXPECT_NE(blob.Data(), bytes.data());
}

TOstelBlob TakeOver(TBytes& bytes) {
    return TOstelBlob(std::move(bytes));
}

TEST(TOstelBlob, TakesOverAVectorThatIsMoved) {
    TBytes bytes{1, 0, 255};
    const unsigned char* const place = bytes.data();
    const TOstelBlob blob = TakeOver(bytes);
    EXPECT_EQ(blob.Data(), place);
    EXPECT_THAT(blob.GetContainer(), ElementsAre(1, 0, 255));
    EXPECT_THAT(bytes, IsEmpty());
}

TEST(TOstelBlob, KeepsTheZeroBytesOfATextAndGivesThemBack) {
    const TOstelBlob blob(WITH_ZERO);
    EXPECT_THAT(blob.GetContainer(), ElementsAre('a', 0, 255, '\n'));
    EXPECT_EQ(blob.ToString(), WITH_ZERO);
    std::string text = "replaced";
    blob.ToString(text);
    EXPECT_EQ(text, WITH_ZERO);
}

TEST(TOstelBlob, TakesTheFirstBytesOfAnArea) {
    EXPECT_THAT(TOstelBlob("abcdef", 3).GetContainer(), ElementsAre('a', 'b', 'c'));
    EXPECT_THAT(TOstelBlob(WITH_ZERO.data(), 2).GetContainer(), ElementsAre('a', 0));
    EXPECT_TRUE(TOstelBlob("abcdef", 0).IsEmpty());
    EXPECT_TRUE(TOstelBlob(nullptr, 0).IsEmpty());
}

TEST(TOstelBlob, TakesNothingFromNoArea) {
    TOstelBlob blob(nullptr, 5);
    EXPECT_TRUE(blob.IsEmpty());
    blob.FromString("kept");
    EXPECT_EQ(blob.Add(nullptr, 5), nullptr);
    EXPECT_EQ(blob.ToString(), "kept");
}

TEST(TOstelBlob, TakesNothingFromAnAreaThatNoMemoryCanHold) {
    if (sizeof(std::size_t) > sizeof(unsigned int)) {
        GTEST_SKIP() << "there may be an area of 4 GiB";
    }
    for (const unsigned int size : {UINT_MAX, UINT_MAX - 3, UINT_MAX / 2 + 1}) {
        EXPECT_THROW(TOstelBlob("few", size), std::length_error) << size;
        TOstelBlob blob("kept");
        EXPECT_THROW(blob.Add("few", size), std::length_error) << size;
        EXPECT_EQ(blob.ToString(), "kept");
    }
}

TEST(TOstelBlob, ReplacesItsContentByAText) {
    TOstelBlob blob("former content");
    blob.FromString(WITH_ZERO);
    EXPECT_EQ(blob.ToString(), WITH_ZERO);
    blob.FromString("");
    EXPECT_TRUE(blob.IsEmpty());
    EXPECT_EQ(blob.ToString(), "");
}

TEST(TOstelBlob, AddsVectorsTextsAndAreasAtItsEnd) {
    TOstelBlob blob("1");
    blob.Add(TBytes{'2', 0});
    blob.Add(WITH_ZERO);
    blob.Add("3xx", 1);
    EXPECT_EQ(blob.ToString(), std::string("12\0", 3) + WITH_ZERO + "3");
}

TEST(TOstelBlob, TellsWhereTheAddedAreaStarts) {
    TOstelBlob blob("head");
    unsigned char* const added = blob.Add("tail", 4);
    EXPECT_EQ(added, blob.Data() + 4);
    *added = 'T';
    EXPECT_EQ(blob.ToString(), "headTail");
    EXPECT_EQ(blob.Add("ignored", 0), blob.Data() + 8);
}

TEST(TOstelBlob, StaysAsItIsWhenNothingIsAdded) {
    for (TOstelBlob blob : {TOstelBlob(""), TOstelBlob("abc")}) {
        const TBytes before = blob.GetContainer();
        blob.Add(TBytes());
        blob.Add(std::string());
        blob.Add("ignored", 0);
        blob.Add(nullptr, 0);
        EXPECT_EQ(blob.GetContainer(), before);
    }
}

TEST(TOstelBlob, CanAddItsOwnBytesWhileItGrows) {
    TOstelBlob blob("ab");
    for (int i = 0; i < 8; ++i) {
        blob.GetContainer().shrink_to_fit();
        blob.Add(blob.GetContainer());
    }
    EXPECT_EQ(blob.Size(), 512U);
    blob.FromString("xyz");
    blob.GetContainer().shrink_to_fit();
    blob.Add(reinterpret_cast<const char*>(blob.Data()) + 1, 2);
    EXPECT_EQ(blob.ToString(), "xyzyz");
}

TEST(TOstelBlob, GivesItsBytesToLoops) {
    TOstelBlob blob("abc");
    for (unsigned char& byte : blob) {
        ++byte;
    }
    const TOstelBlob& constant = blob;
    EXPECT_EQ(std::string(constant.begin(), constant.end()), "bcd");
    EXPECT_EQ(std::accumulate(constant.begin(), constant.end(), 0), 'b' + 'c' + 'd');
}

TEST(TOstelBlob, StoresAndLoadsTheSameBytes) {
    const TempDir dir;
    std::string all;
    for (int i = 0; i < 100000; ++i) {
        all += static_cast<char>(i * 31 >> 3);
    }
    // Around the sizes in which files are read, too.
    for (const std::size_t size : {1U, 4095U, 4096U, 4097U, 8192U, 100000U}) {
        const TOstelBlob stored(all.substr(0, size));
        ASSERT_TRUE(stored.Store(dir.File("bytes")));
        EXPECT_EQ(Contents(dir.File("bytes")), all.substr(0, size));
        TOstelBlob loaded("replaced");
        EXPECT_TRUE(loaded.Load(dir.File("bytes")));
        EXPECT_EQ(loaded.GetContainer(), stored.GetContainer());
    }
}

TEST(TOstelBlob, StoresOverALongerFile) {
    const TempDir dir;
    Fill(dir.File("bytes"), "much longer than what comes");
    EXPECT_TRUE(TOstelBlob("short").Store(dir.File("bytes")));
    EXPECT_EQ(Contents(dir.File("bytes")), "short");
    EXPECT_TRUE(TOstelBlob("").Store(dir.File("bytes")));
    EXPECT_EQ(Contents(dir.File("bytes")), "");
}

TEST(TOstelBlob, TellsOfAFileThatCannotBeStored) {
    const TempDir dir;
    const TOstelBlob blob("bytes");
    EXPECT_FALSE(blob.Store(dir.File("missing/file")));
    EXPECT_FALSE(blob.Store(dir.Path().string()));
    EXPECT_FALSE(blob.Store(""));
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

TEST(TOstelBlob, DoesNotTakeAPathForWhatStandsBeforeItsZeroByte) {
    const TempDir dir;
    Fill(dir.File("bytes"), "bytes");
    const std::string path = dir.File("bytes") + std::string("\0x", 2);
    TOstelBlob blob("kept");
    EXPECT_FALSE(blob.Load(path));
    EXPECT_EQ(blob.ToString(), "kept");
    EXPECT_FALSE(blob.Store(path));
    EXPECT_EQ(Contents(dir.File("bytes")), "bytes");
}

TEST(TOstelBlob, TellsOfAFullDiskHoweverFewBytesThereAre) {
    EXPECT_FALSE(TOstelBlob("few").Store("/dev/full"));
    EXPECT_FALSE(TOstelBlob(std::string(100000, 'x')).Store("/dev/full"));
}

TEST(TOstelBlob, KeepsItsContentWhenThereIsNoFileToLoad) {
    const TempDir dir;
    TOstelBlob blob("kept");
    EXPECT_FALSE(blob.Load(dir.File("missing")));
    EXPECT_FALSE(blob.Load(""));
    EXPECT_FALSE(std::filesystem::exists(dir.File("missing")));
    EXPECT_EQ(blob.ToString(), "kept");
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

TEST(TOstelBlob, IsEmptiedByAnEmptyFileAndTellsSo) {
    const TempDir dir;
    Fill(dir.File("empty"), "");
    TOstelBlob blob("former content");
    EXPECT_FALSE(blob.Load(dir.File("empty")));
    EXPECT_TRUE(blob.IsEmpty());
}

TEST(TOstelBlob, DoesNotLoadAFileThatItCouldNotWrite) {
    const TempDir dir;
    ASSERT_EQ(chmod(dir.Path().c_str(), 0755), 0);
    Fill(dir.File("read-only"), "bytes");
    ASSERT_EQ(chmod(dir.File("read-only").c_str(), 0444), 0);
    TOstelBlob blob("kept");
    {
        const TOrdinaryUser user;
        ASSERT_EQ(Contents(dir.File("read-only")), "bytes");
        EXPECT_FALSE(blob.Load(dir.File("read-only")));
    }
    EXPECT_EQ(blob.ToString(), "kept");
    // Could be opened if it were only for reading.
    EXPECT_FALSE(blob.Load(dir.Path().string()));
    EXPECT_EQ(blob.ToString(), "kept");
}

TEST(TOstelBlob, LoadsWithoutChangingTheFile) {
    const TempDir dir;
    Fill(dir.File("bytes"), "bytes");
    TOstelBlob blob("");
    EXPECT_TRUE(blob.Load(dir.File("bytes")));
    EXPECT_EQ(Contents(dir.File("bytes")), "bytes");
}

TEST(TOstelBlob, KeepsItsContentWhenReadingFails) {
    // Can be opened for reading and writing, but has nothing at its start.
    TOstelBlob blob("kept");
    EXPECT_FALSE(blob.Load("/proc/self/mem"));
    EXPECT_EQ(blob.ToString(), "kept");
}

TEST(TOstelBlob, IsCopiedDeepAndMoved) {
    TOstelBlob blob("bytes");
    TOstelBlob copy(blob);
    copy.Add("more");
    EXPECT_EQ(blob.ToString(), "bytes");
    const TOstelBlob moved(std::move(copy));
    EXPECT_EQ(moved.ToString(), "bytesmore");
    blob = moved;
    EXPECT_EQ(blob.ToString(), "bytesmore");
}

TEST(TOstelBlob, IsAContainerFacadeWithNothingElseInIt) {
    using TBase = OstelContainer::TBaseContainerFacade<TBytes>;
    using TFacade = OstelContainer::TContainerFacade<TBytes>;
    static_assert(std::is_base_of_v<TBase, TFacade> && std::is_base_of_v<TFacade, TOstelBlob>);
    static_assert(std::has_virtual_destructor_v<TBase>);
    static_assert(sizeof(TOstelBlob) == sizeof(void*) + sizeof(TBytes));
    static_assert(sizeof(TBase) == sizeof(TOstelBlob));
    EXPECT_EQ(OffsetOf(TContainer()), sizeof(void*));
    const std::unique_ptr<TBase> owned = std::make_unique<TOstelBlob>("deleted as its base");
    EXPECT_EQ(owned->GetContainer().size(), 19U);
}

}  // namespace
