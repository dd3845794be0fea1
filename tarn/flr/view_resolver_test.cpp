#include "tarn/flr/view_resolver.h"

#include <cerrno>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "tests/support/caught_error.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/temp_dir.h"

namespace tarn {
namespace {

namespace stdfs = std::filesystem;
using last_t = view_resolver_t::ELastLink;

/// Two volumes of a view on this host: "<dir>/vol" is "/mnt/v", "<dir>/data" is "/mnt/v/data". Beside them lies
/// "<dir>/secret", which nothing in the view may lead to.
class ViewResolver : public testing::Test {
  protected:
    ViewResolver() {
        for (const char* directory : {"vol/sub/deep", "data/inner", "secret", "vol/data"}) {
            stdfs::create_directories(Real(directory));
        }
        for (const char* file : {"vol/file", "vol/sub/file", "data/file", "data/inner/file", "secret/file"}) {
            std::ofstream(Real(file)) << file;
        }
        rules_.AddMappingRule(Real("vol"), "/mnt/v");
        rules_.AddMappingRule(Real("data"), "/mnt/v/data");
    }

    std::string Real(const std::string& name) const { return dir_.path() + "/" + name; }
    void Link(const std::string& target, const std::string& name) const { stdfs::create_symlink(target, Real(name)); }
    std::string Resolve(const std::string& path, last_t last = last_t::eFollow) const {
        return view_resolver_t(rules_).Resolve(path, last);
    }
    void ExpectUnmapped(const std::string& path) const {
        const auto caught = tests::CatchError([&] { Resolve(path); });
        EXPECT_EQ(caught.type, "exc::CRuntimeExc") << path;
        EXPECT_EQ(caught.message, "No suitable mapping rule was found for a given path.") << path;
    }
    void ExpectLoop(const std::string& path) const {
        try {
            Resolve(path);
            ADD_FAILURE() << path;
        } catch (const posix::errno_exc_t& error) {
            EXPECT_EQ(error.GetErrno(), ELOOP);
            EXPECT_EQ(error.Message(),
                      "Failed to resolve symbolic links of [" + path + "]: Too many levels of symbolic links");
        }
    }

    tests::temp_dir_t dir_;
    CFLRContext rules_;
};

TEST_F(ViewResolver, PathWithoutLinksIsMapped) {
    EXPECT_EQ(Resolve("/mnt/v/sub/file"), Real("vol/sub/file"));
    EXPECT_EQ(Resolve("mnt/v//sub/"), Real("vol/sub"));
    EXPECT_EQ(Resolve("/mnt/v"), Real("vol/"));
    EXPECT_EQ(Resolve("/mnt/v/missing/too"), Real("vol/missing/too"));
    EXPECT_EQ(Resolve("/mnt/v/file/below"), Real("vol/file/below"));
}

TEST_F(ViewResolver, PathOffTheMountPointsIsRefused) {
    for (const char* path : {"", "/", "/mnt", "/other", "/etc/passwd"}) {
        ExpectUnmapped(path);
    }
}

TEST_F(ViewResolver, DotsAreResolvedByNameFirst) {
    EXPECT_EQ(Resolve("/mnt/v/./sub/../file"), Real("vol/file"));
    EXPECT_EQ(Resolve("/../../mnt/v/file"), Real("vol/file"));
    EXPECT_EQ(Resolve("/mnt/v/missing/../file"), Real("vol/file"));
    ExpectUnmapped("/mnt/v/../../etc/passwd");
    ExpectUnmapped("/mnt/v/..");
    ExpectUnmapped("/mnt/v/data/../../../secret/file");
}

TEST_F(ViewResolver, AbsoluteLinkStartsAtTheRootOfTheView) {
    Link("/mnt/v/sub/file", "vol/l");
    EXPECT_EQ(Resolve("/mnt/v/l"), Real("vol/sub/file"));
    EXPECT_EQ(Resolve("/mnt/v/l", last_t::eKeep), Real("vol/l"));
}

TEST_F(ViewResolver, AbsoluteLinkToTheHostIsRefused) {
    Link(Real("secret/file"), "vol/l");
    Link("/etc", "vol/etc");
    Link("/", "vol/root");
    ExpectUnmapped("/mnt/v/l");
    ExpectUnmapped("/mnt/v/etc/passwd");
    ExpectUnmapped("/mnt/v/root" + Real("secret/file"));
    EXPECT_EQ(Resolve("/mnt/v/root/mnt/v/file"), Real("vol/file"));
}

TEST_F(ViewResolver, RelativeLinkGoesOnFromItsDirectory) {
    Link("sub/file", "vol/l");
    Link("../file", "vol/sub/up");
    Link("./deep/.././file", "vol/sub/here");
    EXPECT_EQ(Resolve("/mnt/v/l"), Real("vol/sub/file"));
    EXPECT_EQ(Resolve("/mnt/v/sub/up"), Real("vol/file"));
    EXPECT_EQ(Resolve("/mnt/v/sub/here"), Real("vol/sub/file"));
}

TEST_F(ViewResolver, RelativeLinkOutOfTheVolumeIsRefused) {
    Link("../secret/file", "vol/l");
    Link("../../../../../../../../etc/passwd", "vol/many");
    Link("..", "vol/up");
    ExpectUnmapped("/mnt/v/l");
    ExpectUnmapped("/mnt/v/many");
    ExpectUnmapped("/mnt/v/up");
    ExpectUnmapped("/mnt/v/up/secret/file");
}

TEST_F(ViewResolver, RelativeLinkMayLeaveAVolumeAndComeBack) {
    Link("../../mnt/v/data/file", "vol/l");
    Link("../../../../../../mnt/v/file", "vol/over");
    Link("../file", "data/toParent");
    EXPECT_EQ(Resolve("/mnt/v/l"), Real("data/file"));
    EXPECT_EQ(Resolve("/mnt/v/over"), Real("vol/file"));
    EXPECT_EQ(Resolve("/mnt/v/data/toParent"), Real("vol/file"));
}

TEST_F(ViewResolver, PlaceInTheViewIsToldWithoutLinks) {
    Link("/mnt/v/sub", "vol/l");
    Link("../..", "data/up");
    const view_resolver_t resolver(rules_);
    EXPECT_EQ(resolver.ResolveInView("/mnt/v/l/./file", last_t::eFollow), "/mnt/v/sub/file");
    EXPECT_EQ(resolver.ResolveInView("mnt/v/l", last_t::eKeep), "/mnt/v/l");
    EXPECT_EQ(resolver.ResolveInView("/mnt/v/l/", last_t::eFollow), "/mnt/v/sub");
    EXPECT_EQ(resolver.ResolveInView("/mnt/v/data/up/elsewhere", last_t::eFollow), "/mnt/elsewhere");
    EXPECT_EQ(resolver.ResolveInView("", last_t::eFollow), "/");
}

TEST_F(ViewResolver, LinksInTheMiddleAreResolvedEvenWhenTheLastIsKept) {
    Link("sub", "vol/rel");
    Link("/mnt/v/data/inner", "vol/abs");
    Link("/etc", "vol/sub/etc");
    EXPECT_EQ(Resolve("/mnt/v/rel/file", last_t::eKeep), Real("vol/sub/file"));
    EXPECT_EQ(Resolve("/mnt/v/abs/file", last_t::eKeep), Real("data/inner/file"));
    EXPECT_EQ(Resolve("/mnt/v/rel/etc", last_t::eKeep), Real("vol/sub/etc"));
    ExpectUnmapped("/mnt/v/rel/etc/passwd");
}

TEST_F(ViewResolver, NestedMountPointCoversWhatIsBelowIt) {
    std::ofstream(Real("vol/data/hidden")) << "hidden";
    Link("data/file", "vol/l");
    Link("/mnt/v/data", "vol/dir");
    EXPECT_EQ(Resolve("/mnt/v/data/hidden"), Real("data/hidden"));
    EXPECT_EQ(Resolve("/mnt/v/l"), Real("data/file"));
    EXPECT_EQ(Resolve("/mnt/v/dir/inner/../file"), Real("data/file"));
    EXPECT_EQ(Resolve("/mnt/v/dir"), Real("data/"));
}

TEST_F(ViewResolver, MountPointThatIsALinkBelowItsParentStaysTheMountPoint) {
    stdfs::remove_all(Real("vol/data"));
    Link("/etc", "vol/data");
    EXPECT_EQ(Resolve("/mnt/v/data/file"), Real("data/file"));
}

TEST_F(ViewResolver, LinksToLinksAreFollowedInsideTheView) {
    Link("two", "vol/one");
    Link("/mnt/v/sub/three", "vol/two");
    Link("../data/four", "vol/sub/three");
    Link("inner/file", "data/four");
    EXPECT_EQ(Resolve("/mnt/v/one"), Real("data/inner/file"));
    Link("five", "vol/six");
    Link("/etc/passwd", "vol/five");
    ExpectUnmapped("/mnt/v/six");
}

TEST_F(ViewResolver, DotsInATargetAreResolvedAfterItsLinks) {
    Link("/mnt/v/data/inner", "vol/far");
    Link("far/../file", "vol/l");
    EXPECT_EQ(Resolve("/mnt/v/l"), Real("data/file"));
}

TEST_F(ViewResolver, DanglingLinkEndsAtItsTarget) {
    Link("nothing/here", "vol/rel");
    Link("/mnt/v/nothing", "vol/abs");
    EXPECT_EQ(Resolve("/mnt/v/rel"), Real("vol/nothing/here"));
    EXPECT_EQ(Resolve("/mnt/v/abs/below"), Real("vol/nothing/below"));
}

TEST_F(ViewResolver, CyclesEnd) {
    Link("self", "vol/self");
    Link("/mnt/v/pong", "vol/ping");
    Link("ping", "vol/pong");
    Link("grow/grow", "vol/grow");
    ExpectLoop("/mnt/v/self");
    ExpectLoop("/mnt/v/ping");
    ExpectLoop("/mnt/v/ping/file");
    ExpectLoop("/mnt/v/grow");
    EXPECT_EQ(Resolve("/mnt/v/self", last_t::eKeep), Real("vol/self"));
}

TEST_F(ViewResolver, FortyLinksAreFollowedAndNoMore) {
    Link("file", "vol/l1");
    for (int i = 2; i <= 41; ++i) {
        Link("l" + std::to_string(i - 1), "vol/l" + std::to_string(i));
    }
    EXPECT_EQ(Resolve("/mnt/v/l40"), Real("vol/file"));
    ExpectLoop("/mnt/v/l41");
}

TEST_F(ViewResolver, LinkInTheRealPathItselfIsTheHostsOwn) {
    Link("secret", "alias");
    CFLRContext rules;
    rules.AddMappingRule(Real("alias"), "/mnt/a");
    EXPECT_EQ(view_resolver_t(rules).Resolve("/mnt/a/file", last_t::eFollow), Real("alias/file"));
}

TEST_F(ViewResolver, EmptyMountPointIsTheRootOfTheView) {
    CFLRContext rules;
    rules.AddMappingRule(Real("vol"), "");
    Link("/sub/file", "vol/abs");
    Link("../../../../file", "vol/sub/up");
    const view_resolver_t resolver(rules);
    EXPECT_EQ(resolver.Resolve("/abs", last_t::eFollow), Real("vol/sub/file"));
    EXPECT_EQ(resolver.Resolve("/sub/up", last_t::eFollow), Real("vol/file"));
    EXPECT_EQ(resolver.Resolve("/../../secret/file", last_t::eFollow), Real("vol/secret/file"));
}

TEST_F(ViewResolver, LinkThatCannotBeExaminedIsNotPassedOver) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::readlinkat>(EACCES);
    try {
        Resolve("/mnt/v/file");
        ADD_FAILURE();
    } catch (const posix::errno_exc_t& error) {
        EXPECT_EQ(error.GetErrno(), EACCES);
        EXPECT_EQ(error.GetPath(), Real("vol/"));
    }
}

TEST(ViewResolverNames, NormaliseResolvesDotsAndLeavesOthersAlone) {
    const auto normalise = &view_resolver_t::Normalise;
    EXPECT_EQ(normalise("/a/./b/../c"), "/a/c");
    EXPECT_EQ(normalise("a/.."), "/");
    EXPECT_EQ(normalise(".."), "/");
    EXPECT_EQ(normalise("/../../a"), "/a");
    EXPECT_EQ(normalise("/a//b/"), "/a//b/");
    EXPECT_EQ(normalise("/a/...b/..c"), "/a/...b/..c");
    EXPECT_EQ(normalise(""), "");
}

}  // namespace
}  // namespace tarn
