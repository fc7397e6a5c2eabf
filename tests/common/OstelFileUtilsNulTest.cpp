// Paths with a NUL in them: nothing may take them for what stands before the NUL.
#include "FileUtilsTest.h"
#include "OstelFileUtils.h"

using namespace OstelFileUtils;

namespace {

class FileUtilsNul : public FileUtilsTest {
protected:
    FileUtilsNul() {
        Directory("d/sub");
        Put("d/file", "text");
        Put("d/sub/file", "text");
        Put("file", "text");
        Link("file", "link");
    }

    // Everything is as it was.
    ~FileUtilsNul() override {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_Dir.Path())) {
            names.insert(entry.path().lexically_relative(m_Dir.Path()).string());
        }
        EXPECT_THAT(names,
                    testing::ElementsAre("d", "d/file", "d/sub", "d/sub/file", "file", "link"));
        EXPECT_EQ(Content(File("file")), "text");
        EXPECT_EQ(ModeOf(File("file")), m_Mode);
    }

    std::string Cut(const std::string& name) const { return File(name) + std::string("\0x", 2); }

    const std::string m_Directory = Cut("d");
    const std::string m_File = Cut("file");
    const std::string m_Link = Cut("link");
    const std::string m_New = Cut("new");
    const unsigned int m_Mode = [this] { return ModeOf(Put("file", "text")); }();
};

TEST_F(FileUtilsNul, AreNoNamesToMakeOrTakeAway) {
    EXPECT_FAILS(CreateDirectory(m_New, 0755), ENOENT);
    EXPECT_FAILS(CreateDirectoryRecursive(m_New, 0755), ENOENT);
    EXPECT_FAILS(CreateDirectoryRecursive(Cut("new/deep"), 0755), ENOENT);
    EXPECT_FAILS(CreateSymbolicLink("file", m_New), ENOENT);
    EXPECT_FAILS(CreateSymbolicLink(m_File, File("new")), ENOENT);
    EXPECT_FAILS(CreateHardLink(File("file"), m_New), ENOENT);
    EXPECT_FAILS(CreateHardLink(m_File, File("new")), ENOENT);
    EXPECT_FAILS(Rename(m_File, File("new")), ENOENT);
    EXPECT_FAILS(Rename(File("file"), m_New), ENOENT);
    EXPECT_FAILS(Move(m_File, File("new")), ENOENT);
    EXPECT_FAILS(Move(File("file"), m_New), ENOENT);
    EXPECT_FAILS(Remove(m_File), ENOENT);
    EXPECT_FAILS(RemoveDirectory(m_Directory), ENOENT);
    EXPECT_FAILS(RemoveDirectoryRecursive(m_Directory), ENOENT);
    EXPECT_FAILS(ResizeFile(m_File, 0), ENOENT);
    EXPECT_FAILS(ChangePermissions(m_File, 0), ENOENT);
    EXPECT_FAILS(ChangeLinkOwner(m_File, geteuid()), ENOENT);
    EXPECT_FAILS(ChangeLinkGroup(m_File, getegid()), ENOENT);
    EXPECT_FAILS(ChangeDirectory(m_Directory), ENOENT);
    EXPECT_FAILS(SyncDirectory(m_Directory), ENOENT);
}

TEST_F(FileUtilsNul, AreNoPrefixesOfTemporaryDirectories) {
    for (const std::string& prefix : {m_New, File("newXXXXXX") + std::string("\0x", 2)}) {
        std::string path = prefix;
        EXPECT_FAILS(CreateTemporaryDirectory(path, 0700), ENOENT);
        EXPECT_EQ(path, prefix);
    }
}

TEST_F(FileUtilsNul, HaveNoAttributes) {
    unsigned int number = 77;
    unsigned long long wide = 77;
    long seconds = 77;
    std::string text = "before";
    EXPECT_FAILS(GetPermissions(m_File, number), ENOENT);
    EXPECT_FAILS(GetDevice(m_File, wide), ENOENT);
    EXPECT_FAILS(GetModificationTime(m_File, seconds), ENOENT);
    EXPECT_FAILS(GetAvailableSpace(m_File, wide), ENOENT);
    EXPECT_FAILS(ReadLink(m_Link, text), ENOENT);
    EXPECT_FAILS(RealPath(m_File, text), ENOENT);
    EXPECT_EQ(number, 77U);
    EXPECT_EQ(wide, 77U);
    EXPECT_EQ(seconds, 77);
    EXPECT_EQ(text, "before");
    EXPECT_EQ(GetSize(m_File), 0U);
    EXPECT_EQ(GetHardLinkCount(m_File), 0U);
    EXPECT_FALSE(Exists(m_File) || IsRegular(m_File) || IsDirectory(m_Directory));
    EXPECT_FALSE(IsSymbolicLink(m_Link));
    EXPECT_FALSE(IsSame(m_File, File("file")));
}

TEST_F(FileUtilsNul, HaveNoContents) {
    std::string text = "before";
    EXPECT_FAILS(ReadFile(m_File, text), ENOENT);
    EXPECT_EQ(text, "before");
    EXPECT_FAILS(WriteFile(m_File, "new", false, false), ENOENT);
    EXPECT_FAILS(WriteFile(m_New, "new", true, true), ENOENT);
    EXPECT_FAILS(CopyFile(m_File, File("new")), ENOENT);
    EXPECT_FAILS(CopyFile(File("file"), m_New), ENOENT);
    EXPECT_FAILS(CopyDirectory(m_Directory, File("new")), ENOENT);
    EXPECT_FAILS(CopyDirectory(File("d"), m_New), ENOENT);
    EXPECT_FAILS(CopyDirectoryContent(m_Directory, File("d")), ENOENT);
    EXPECT_FAILS(CopyDirectoryContent(File("d"), m_Directory), ENOENT);
}

// As directories that are missing.
TEST_F(FileUtilsNul, HaveNoEntries) {
    const TDirIterator entry(m_Directory);
    EXPECT_TRUE(entry == TDirIterator::End());
    EXPECT_TRUE(TDirIterator(entry) == TDirIterator::End());
    EXPECT_TRUE(IsDirEmpty(m_Directory));
    EXPECT_EQ(GetDirectorySizeRecursive(m_Directory), 0U);
    std::set<std::string> names;
    EXPECT_TRUE(GetFiles(m_Directory, names));
    EXPECT_TRUE(names.empty());
}

}  // namespace
