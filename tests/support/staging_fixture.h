#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "agent/staging/staging.h"
#include "agent/staging/staging_receiver.h"
#include "mirrowen/exc/exception.h"
#include "mirrowen/io/area/area.h"
#include "mirrowen/io/block/fib_block.h"
#include "tests/support/root_fixture.h"

namespace tests {

/// An area of one block with the bytes of `text`.
inline std::shared_ptr<io::area::IArea> AreaOf(const std::string& text, std::uint64_t offset) {
    auto content = io::block::CContentBuf::Alloc(text.size());
    std::memcpy(content->Data(), text.data(), text.size());
    return std::make_shared<io::area::CDataArea>(0, io::block::CFibBlock::NewDataBlock(offset, 0, std::move(content)));
}

inline std::shared_ptr<io::area::IArea> ZeroesOf(std::uint64_t size, std::uint64_t offset) {
    return std::make_shared<io::area::CDataArea>(0, io::block::CFibBlock::NewSparseBlock(offset, 0, size));
}

/// The text of what `call` throws; empty when it throws nothing.
template <class Call>
std::string TextOf(Call call) {
    try {
        call();
    } catch (const std::exception& error) {
        return error.what();
    }
    return {};
}

/// A root with a staging folder and the receiver that writes through it.
class staging_fixture_t : public root_fixture_t {
  protected:
    using dev_t = std::shared_ptr<io::area::area_write_dev_t>;

    explicit staging_fixture_t(agent::EResolver resolver = agent::EResolver::eKernel) : root_fixture_t(resolver) {
        Start();
    }

    static agent::item_t Item(agent::EItemKind kind, const std::string& path) {
        agent::item_t item;
        item.kind = kind;
        item.path = path;
        item.second = kind == agent::EItemKind::eLink ? "target" : "";
        return item;
    }

    static agent::item_t File(const std::string& path) { return Item(agent::EItemKind::eFile, path); }

    dev_t Make(const agent::item_t& item, std::uint64_t size = 0, bool overwrite = false) {
        agent::CheckItem(item);
        return receiver_->Receive(item, size, overwrite ? agent::EReplace::eYes : agent::EReplace::eNo);
    }

    /// Receives a file of one block as a session does.
    void Receive(const agent::item_t& item, const std::string& text, bool overwrite = false) {
        const dev_t dev = Make(item, text.size(), overwrite);
        if (!text.empty()) {
            dev->Write(AreaOf(text, 0));
        }
        dev->Finish(nullptr);
    }

    /// What is staged, relative to the staging folder.
    std::vector<std::string> Staged() const {
        const std::filesystem::path folder = Inside() / ".tarn-staging";
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
            if (entry.path().parent_path() != folder) {
                names.push_back(entry.path().lexically_relative(folder).string());
            }
        }
        return names;
    }

    /// An item of a group that is not visible before its commit.
    static agent::item_t Deferred(agent::item_t item, std::uint64_t entry) {
        item.deferred = true;
        item.entry = entry;
        return item;
    }

    /// Commits the group of the copy whose identifier `Item` gives; returns what the commit reports.
    std::vector<brannock::transmission::entry_report_t> Commit(std::uint64_t entries, bool unsynced = false) {
        agent::item_t item;
        item.kind = agent::EItemKind::eCommit;
        item.entry = entries;
        item.unsynced = unsynced;
        const dev_t dev = Make(item);
        dev->Finish(nullptr);
        return dynamic_cast<brannock::transmission::IEntryReporter&>(*dev).TakeEntryReports();
    }

    const std::shared_ptr<agent::staging_receiver_t>& Receiver() const { return receiver_; }
    void DropReceiver() { receiver_.reset(); }

    /// Empties the tree for another run; the staging folder is made anew with it.
    void StartOver() {
        receiver_.reset();
        MakeTree();
        Start();
    }

  private:
    void Start() {
        receiver_ = std::make_shared<agent::staging_receiver_t>(std::make_shared<agent::staging_t>(RootPtr()));
    }

    std::shared_ptr<agent::staging_receiver_t> receiver_;
};

}  // namespace tests
