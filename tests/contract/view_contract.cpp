#include "tests/contract/view_contract.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <thread>
#include <vector>

#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/file_info.h"
#include "mirrowen/util/str_format.h"

namespace contract {
namespace {

namespace fs = std::filesystem;

// Every kind of object that a tree may hold, by its path; a directory ends in '/'.
const std::map<std::string, std::string> kFiles = {
    {"empty", ""},
    {"file", "content"},
    {"dir/inner", "inner content"},
    {"dir/deep/er", std::string(300000, 'x')},
    {"blank name", "blank"},
    {"\xff\xfe", "not UTF-8"},
};
const std::map<std::string, std::string> kLinks = {
    {"near", "file"}, {"dir/up", "../file"}, {"far", "/dir/inner"}, {"dir/all", "/dir"}, {"dangling", "nowhere"},
};

}  // namespace

ViewContract::ViewContract() {
    for (const auto& [name, content] : kFiles) {
        fs::create_directories(fs::path(Real(name)).parent_path());
        tests::WriteFile(Real(name), content);
    }
    for (const auto& [name, target] : kLinks) {
        fs::create_symlink(target, Real(name));
    }
    view_ = GetParam().make(dir_.path());
    fs_ = view_->Operations();
}

std::string ViewContract::Snapshot() const {
    std::set<std::string> lines;
    for (const auto& entry : fs::recursive_directory_iterator(dir_.path())) {
        const util::CFileInfo info = util::CFileInfo::getInfoForFile(entry.path().string(), false);
        lines.insert(util::str_format("%1 %2 %3 %4.%5 %6\n", entry.path().string(), info.mode, info.size,
                                      info.changeTime.seconds, info.changeTime.nanoseconds,
                                      entry.is_regular_file() ? tests::ReadFile(entry.path().string()) : ""));
    }
    std::string all;
    for (const std::string& line : lines) {
        all += line;
    }
    return all;
}

std::string ViewContract::Get(const std::string& name) {
    const auto stream = Fs().OpenFile4Read(Path(name));
    std::string text(stream->GetFileSize(), '?');
    EXPECT_EQ(stream->ReadExc(text.data(), text.size()), text.size());
    stream->FinishRead();
    return text;
}

TEST_P(ViewContract, EveryFileReadsAsItIs) {
    for (const auto& [name, content] : kFiles) {
        EXPECT_TRUE(Fs().IsObjectExist(Path(name))) << name;
        EXPECT_TRUE(Get(name) == content) << name;
    }
}

TEST_P(ViewContract, ReadingForExclusiveUseIsReading) {
    const auto stream = Fs().OpenFile4ReadWithoutWriteShare(Path("file"));
    std::string text(7, '?');
    EXPECT_EQ(stream->ReadExc(text.data(), 7), 7U);
    EXPECT_EQ(text, "content");
}

TEST_P(ViewContract, EveryObjectIsDescribedAsItIs) {
    std::vector<std::string> names = {"dir", "dir/deep"};
    for (const auto& [name, content] : kFiles) {
        names.push_back(name);
    }
    for (const auto& [name, target] : kLinks) {
        names.push_back(name);
    }
    for (const std::string& name : names) {
        util::CFileInfo expected = util::CFileInfo::getInfoForFile(Real(name), false);
        util::CFileInfo info = Fs().GetFileMetadata(Path(name), tarn::EFileInfoType::eFileInfoBasic);
        expected.accessTime = info.accessTime;  // looking may change it
        EXPECT_EQ(info, expected) << name;
        EXPECT_TRUE(Fs().IsObjectExist(Path(name))) << name;
    }
}

TEST_P(ViewContract, LinksAreReadThroughInsideTheView) {
    EXPECT_EQ(Get("near"), "content");
    EXPECT_EQ(Get("dir/up"), "content");
    EXPECT_EQ(Get("far"), "inner content");
    EXPECT_EQ(Get("dir/all/inner"), "inner content");
    tests::Catch([&] { Get("dangling"); });
}

TEST_P(ViewContract, LinksTellTheirTargets) {
    for (const auto& [name, target] : kLinks) {
        tarn::CSymlinkData out;
        ASSERT_TRUE(Fs().TryGetSymLinkInfo(Path(name), out)) << name;
        const bool absolute = target.front() == '/';
        EXPECT_EQ(static_cast<std::string>(out), absolute ? Real(target.substr(1)) : target) << name;
    }
    for (const auto& [name, content] : kFiles) {
        tarn::CSymlinkData out;
        EXPECT_FALSE(Fs().TryGetSymLinkInfo(Path(name), out)) << name;
        EXPECT_FALSE(out.IsValid());
    }
}

TEST_P(ViewContract, WhatIsNotInTheTreeIsNotInTheView) {
    for (const char* const name : {"missing", "file/inner", "../../../../../../etc/passwd", "dir/../../etc/passwd"}) {
        bool exists = true;
        try {
            exists = Fs().IsObjectExist(Path(name));
        } catch (const std::exception&) {
            exists = false;
        }
        EXPECT_FALSE(exists) << name;
        tests::Catch([&] { Get(name); });
    }
}

TEST_P(ViewContract, EveryChangeIsRefusedAndChangesNothing) {
    const std::string before = Snapshot();
    const tarn::CSymlinkData link(tarn::ESymlinkType::eFileLink, "file");
    for (const char* const name : {"file", "dir", "missing", "near"}) {
        const std::string path = Path(name);
        const std::map<std::string, std::function<void()>> changes = {
            {"OpenFile4Write", [&] { Fs().OpenFile4Write(path, 3); }},
            {"CreateNewFile", [&] { Fs().CreateNewFile(path, 3, false); }},
            {"CreateNewFile with overwrite", [&] { Fs().CreateNewFile(path, 3, true); }},
            {"CreateDir", [&] { Fs().CreateDir(path); }},
            {"DeleteFile", [&] { Fs().DeleteFile(path); }},
            {"RenameFile", [&] { Fs().RenameFile(path, Path("other")); }},
            {"SetFileMetadata", [&] { Fs().SetFileMetadata(util::CFileInfo(), path); }},
            {"CreateSymLink", [&] { Fs().CreateSymLink(path, link); }},
        };
        for (const auto& [operation, change] : changes) {
            const auto caught = tests::Catch(change);
            EXPECT_TRUE(caught.Is<exc::CRuntimeExc>()) << operation;
            EXPECT_EQ(caught.what, View().writeRefusal) << operation;
        }
    }
    EXPECT_FALSE(Fs().IsRenameSupported());
    EXPECT_EQ(Snapshot(), before);
}

TEST_P(ViewContract, DisksMediaAndListingAreRefused) {
    EXPECT_EQ(tests::Catch([&] { Fs().OpenDisk4Read(Path("file")); }).what, View().diskRefusal);
    EXPECT_EQ(tests::Catch([&] { Fs().GetBackupMedia(); }).what, View().mediaRefusal);
    EXPECT_TRUE(tests::Catch([&] { Fs().EnumerateDirectoryContent(Path("dir")); }).Is<exc::CNotImplExc>());
}

TEST_P(ViewContract, ManyReadersShareOneObject) {
    std::atomic<int> failures = 0;
    std::vector<std::jthread> threads;
    for (int id = 0; id != 4; ++id) {
        threads.emplace_back([&] {
            for (int round = 0; round != 20; ++round) {
                failures += Get("far") != "inner content";
                failures += Get("dir/deep/er").size() != 300000;
            }
        });
    }
    threads.clear();
    EXPECT_EQ(failures, 0);
}

}  // namespace contract
