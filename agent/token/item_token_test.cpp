#include "agent/token/item_token.h"

#include <gtest/gtest.h>

#include <cstddef>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/mem_dev.h"
#include "tests/support/format_example.h"

namespace agent {
namespace {

using namespace std::string_literals;
using bytes_dev_t = io::mem_dev_tt<std::string>;

guid::guid_t ExampleCopy() {
    return guid::guid_t(
        {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff});
}

item_t ExampleLink() {
    item_t item;
    item.kind = EItemKind::eLink;
    item.copy = ExampleCopy();
    item.path = "etc/motd";
    item.second = "../run/motd";
    item.deferred = true;
    item.entry = 7;
    return item;
}

item_t FullFile() {
    item_t item;
    item.copy = ExampleCopy();
    item.path = "a/\xff name";
    item.startOffset = 0x1122334455667788;
    item.deferred = true;
    item.resumable = true;
    item.entry = 0x8877665544332211;
    item.info.type = util::EFileType::eRegular;
    item.info.size = 7;
    item.info.owner = {"root", 0};
    item.info.mode = 04755;
    item.info.modificationTime = {-5, 999999999};
    item.info.attributes = {{"user.x", "value"}};
    return item;
}

std::string Serialised(const item_t& item) {
    const auto device = std::make_shared<bytes_dev_t>();
    io::binary_stream_tt stream(device);
    item_token_t(item).Serial(stream);
    return *device->GetBuffer();
}

std::shared_ptr<item_token_t> Read(const std::string& bytes) {
    io::binary_stream_tt stream(std::make_shared<bytes_dev_t>(std::make_shared<std::string>(bytes)));
    return std::dynamic_pointer_cast<item_token_t>(item_token_t::Unserial(stream));
}

/// The innermost text of the error that reading `bytes` ends in; empty when it succeeds.
std::string FaultOf(const std::string& bytes) {
    try {
        Read(bytes);
    } catch (const exc::CRuntimeExc& error) {
        EXPECT_EQ(error.Message(), "Failed to read the token of an item.");
        try {
            std::rethrow_exception(exc::RootCause(error.Cause()));
        } catch (const std::exception& cause) {
            return exc::MessageOf(cause);
        }
    }
    return {};
}

/// Not inlined: there g++ 12 takes a moved string for one that overflows.
[[gnu::noinline]] std::string With(const std::string& bytes, std::size_t offset, std::uint8_t value) {
    std::string changed = bytes;
    changed.at(offset) = static_cast<char>(value);
    return changed;
}

std::string FaultOfItem(const item_t& item) {
    try {
        item_token_t token(item);
    } catch (const exc::CRuntimeExc& error) {
        return error.Message();
    }
    return {};
}

TEST(ItemToken, ExampleOfTheDocumentationIsWhatIsWritten) {
    EXPECT_EQ(Serialised(ExampleLink()), tests::FormatExample("Agent item"));
}

TEST(ItemToken, ExampleOfTheDocumentationIsRead) {
    const auto token = Read(tests::FormatExample("Agent item"));
    ASSERT_NE(token, nullptr);
    EXPECT_EQ(token->GetItem().kind, EItemKind::eLink);
    EXPECT_EQ(token->GetItem().copy, ExampleCopy());
    EXPECT_EQ(token->GetItem().second, "../run/motd");
    EXPECT_EQ(token->GetItem().entry, 7U);
    EXPECT_TRUE(token->GetItem().deferred);
    EXPECT_FALSE(token->GetItem().unsynced);
    EXPECT_FALSE(token->GetItem().resumable);
    EXPECT_FALSE(token->GetItem().info.isSet());
    EXPECT_EQ(token->GetPath(), "agent-item://etc/motd");
    EXPECT_EQ(token->Path4Log(), "etc/motd");
    EXPECT_EQ(token->GetType(), "agent-item");
    EXPECT_EQ(item_token_t::GetTypeString(), "agent-item");
}

TEST(ItemToken, EveryFieldSurvivesTheJourney) {
    const item_t sent = FullFile();
    const auto token = Read(Serialised(sent));
    const item_t& read = token->GetItem();
    EXPECT_EQ(read.kind, sent.kind);
    EXPECT_EQ(read.copy, sent.copy);
    EXPECT_EQ(read.path, sent.path);
    EXPECT_EQ(read.second, sent.second);
    EXPECT_EQ(read.startOffset, sent.startOffset);
    EXPECT_EQ(read.entry, sent.entry);
    EXPECT_EQ(read.deferred, sent.deferred);
    EXPECT_EQ(read.unsynced, sent.unsynced);
    EXPECT_EQ(read.resumable, sent.resumable);
    EXPECT_EQ(read.info, sent.info);
}

TEST(ItemToken, EachFlagTravelsByItself) {
    bool item_t::*const flags[] = {&item_t::deferred, &item_t::unsynced, &item_t::resumable};
    for (bool item_t::*const set : flags) {
        item_t item;
        item.path = "p";
        item.*set = true;
        item.entry = 0;
        const std::string bytes = Serialised(item);
        const item_t read = Read(bytes)->GetItem();
        for (bool item_t::*const flag : flags) {
            EXPECT_EQ(read.*flag, flag == set);
        }
    }
}

TEST(ItemToken, EveryKindCanBeRead) {
    item_t item;
    item.path = "p";
    for (const EItemKind kind : {EItemKind::eFile, EItemKind::eDirectory, EItemKind::eLink, EItemKind::eHardLink}) {
        item.kind = kind;
        item.second = kind == EItemKind::eLink || kind == EItemKind::eHardLink ? "s" : "";
        EXPECT_EQ(Read(Serialised(item))->GetItem().kind, kind) << NameOfKind(kind);
    }
    item_t commit;
    commit.kind = EItemKind::eCommit;
    commit.entry = 512;
    commit.unsynced = true;
    EXPECT_EQ(Read(Serialised(commit))->GetItem().kind, EItemKind::eCommit);
    EXPECT_EQ(Read(Serialised(commit))->GetItem().entry, 512U);
}

TEST(ItemToken, EveryTruncationIsRefused) {
    for (const item_t& item : {ExampleLink(), FullFile()}) {
        const std::string whole = Serialised(item);
        for (std::size_t length = 0; length < whole.size(); ++length) {
            EXPECT_NE(FaultOf(whole.substr(0, length)), "") << length << " bytes of " << whole.size();
        }
        EXPECT_EQ(FaultOf(whole), "");
    }
}

TEST(ItemToken, UnknownVersionKindAndFlagsAreRefusedByName) {
    const std::string good = Serialised(ExampleLink());
    EXPECT_EQ(FaultOf(With(good, 0, 3)), "Version [3] of an item is not known.");
    EXPECT_EQ(FaultOf(With(good, 0, 1)), "Version [1] of an item is not known.");
    EXPECT_EQ(FaultOf(With(good, 0, 0)), "Version [0] of an item is not known.");
    EXPECT_EQ(FaultOf(With(good, 4, 0)), "Kind [0] of an item is not known.");
    EXPECT_EQ(FaultOf(With(good, 4, 6)), "Kind [6] of an item is not known.");
    EXPECT_EQ(FaultOf(With(good, 7, 0x80)), "Kind [2147483651] of an item is not known.");
    const std::size_t flags = 4 + 4 + 16 + 12 + 15 + 8 + 8;
    EXPECT_EQ(FaultOf(With(good, flags, 9)), "Flags [9] of an item are not known.");
    EXPECT_EQ(FaultOf(With(good, flags + 3, 0x80)), "Flags [2147483649] of an item are not known.");
}

TEST(ItemToken, NoSingleFlippedBitMakesAnItemDeferredOrTakesThatAway) {
    item_t item;
    item.path = "p";
    item.copy = ExampleCopy();
    for (const bool deferred : {false, true}) {
        item.deferred = deferred;
        const std::string good = Serialised(item);
        for (std::size_t bit = 0; bit < 8 * good.size(); ++bit) {
            const auto flipped = static_cast<std::uint8_t>(good[bit / 8] ^ (1 << bit % 8));
            const std::string bad = With(good, bit / 8, flipped);
            if (FaultOf(bad).empty()) {
                EXPECT_EQ(Read(bad)->GetItem().deferred, deferred) << "bit " << bit;
            }
        }
    }
}

TEST(ItemToken, LengthsThatLieAreRefusedBeforeAnythingIsRead) {
    const std::string good = Serialised(ExampleLink());
    const std::string expected = "String of [4294967048] bytes in the binary stream is longer than the allowed [4095].";
    std::string bytes = With(With(With(good, 25, 0xff), 26, 0xff), 27, 0xff);
    EXPECT_EQ(FaultOf(bytes), expected);
    EXPECT_EQ(FaultOf(With(With(good, 24, 0), 25, 0x10)),
              "String of [4096] bytes in the binary stream is longer than the allowed [4095].");
    EXPECT_EQ(FaultOf(With(With(good, 36, 0), 37, 0x10)),
              "String of [4096] bytes in the binary stream is longer than the allowed [4095].");
}

TEST(ItemToken, PartsThatDoNotFitTogetherAreRefused) {
    const auto changed = [](auto change) {
        item_t item = ExampleLink();
        change(item);
        return FaultOfItem(item);
    };
    EXPECT_EQ(changed([](item_t&) {}), "");
    EXPECT_EQ(changed([](item_t& item) { item.path = ""; }), "Invalid item []: it has no path.");
    EXPECT_EQ(changed([](item_t& item) { item.second = ""; }), "Invalid item [etc/motd]: it has no second path.");
    EXPECT_EQ(changed([](item_t& item) { item.kind = EItemKind::eFile; }),
              "Invalid item [etc/motd]: its kind has no second path.");
    EXPECT_EQ(changed([](item_t& item) { item.kind = EItemKind::eCommit; }),
              "Invalid item [etc/motd]: a commit has no path.");
    EXPECT_EQ(changed([](item_t& item) {
                  item.kind = EItemKind::eCommit;
                  item.path = item.second = "";
              }),
              "Invalid item []: a commit is not deferred.");
    EXPECT_EQ(changed([](item_t& item) { item.deferred = false; }),
              "Invalid item [etc/motd]: it has an entry number but is not deferred.");
    EXPECT_EQ(changed([](item_t& item) { item.resumable = true; }),
              "Invalid item [etc/motd]: its kind is not resumable.");
    EXPECT_EQ(changed([](item_t& item) { item.startOffset = 1; }),
              "Invalid item [etc/motd]: its kind has no start offset.");
    EXPECT_EQ(changed([](item_t& item) { item.info.type = util::EFileType::eRegular; }),
              "Invalid item [etc/motd]: its attributes belong to an object of another type.");
    EXPECT_EQ(changed([](item_t& item) { item.path = "a\0b"s; }),
              "Invalid item [a\\x00b]: its path is too long or contains a NUL byte.");
    EXPECT_EQ(changed([](item_t& item) { item.second = "a\0b"s; }),
              "Invalid item [etc/motd]: its second path is too long or contains a NUL byte.");
    EXPECT_EQ(changed([](item_t& item) { item.second = std::string(4095, 't'); }), "");
    EXPECT_NE(changed([](item_t& item) { item.second = std::string(4096, 't'); }), "");
    EXPECT_NE(changed([](item_t& item) { item.path = std::string(4096, 'p'); }), "");
}

TEST(ItemToken, PartsThatDoNotFitTogetherAreRefusedFromThePeerToo) {
    const std::string link = Serialised(ExampleLink());
    EXPECT_EQ(FaultOf(With(link, 4, 1)), "Invalid item [etc/motd]: its kind has no second path.");
    const char* const nul = "Invalid item [\\x00tc/motd]: its path is too long or contains a NUL byte.";
    EXPECT_EQ(FaultOf(With(link, 28, 0)), nul);
}

TEST(ItemToken, KindsHaveNames) {
    EXPECT_EQ(NameOfKind(EItemKind::eFile), "file");
    EXPECT_EQ(NameOfKind(EItemKind::eDirectory), "directory");
    EXPECT_EQ(NameOfKind(EItemKind::eLink), "link");
    EXPECT_EQ(NameOfKind(EItemKind::eHardLink), "hard link");
    EXPECT_EQ(NameOfKind(EItemKind::eCommit), "commit");
    EXPECT_EQ(NameOfKind(static_cast<EItemKind>(9)), "unknown");
}

}  // namespace
}  // namespace agent
