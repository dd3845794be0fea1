// Failures: whoever catches one learns which path it was.
#include <functional>
#include <map>

#include "mirrowen/exc/exception.h"
#include "tests/contract/backend_contract.h"

namespace contract {

TEST_P(BackendContract, AnImpossiblePathIsNamedByTheError) {
    const std::string path = Backend().InvalidPath();
    const std::map<std::string, std::function<void()>> operations = {
        {"OpenFile4Read", [&] { Fs().OpenFile4Read(path); }},
        {"CreateNewFile", [&] { Fs().CreateNewFile(path, 10, true); }},
        {"IsObjectExist", [&] { Fs().IsObjectExist(path); }},
        {"DeleteFile", [&] { Fs().DeleteFile(path); }},
    };
    for (const auto& [name, operation] : operations) {
        SCOPED_TRACE(name);
        const auto caught = tests::Catch(operation);
        EXPECT_NE(caught.what.find(path), std::string::npos) << caught.what;
        EXPECT_EQ(caught.what.rfind(caught.message, 0), 0U) << "the operation's own text comes first";
    }
}

TEST_P(BackendContract, AFailedOperationLeavesTheBackendUsable) {
    tests::Catch([&] { Fs().CreateNewFile(Backend().InvalidPath(), 10, false); });
    tests::Catch([&] { Open("missing"); });
    Put("file", "content");
    EXPECT_EQ(Get("file"), "content");
}

}  // namespace contract
