#include "agent/copy/copy_account.h"

#include <exception>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"

namespace agent::copy {

namespace {

/// Passes the engine's progress on.
class byte_counter_t final : public progress::progress_base_t {
  public:
    byte_counter_t(const copy_options_t& options, copy_report_t& report, copy_observer_t& observer)
        : options_(options), report_(report), observer_(observer) {}
    void OnProgress(std::uint64_t bytes) override {
        options_.remote.ThrowIfStopped();
        report_.bytes += bytes;
        observer_.OnBytes(bytes);
    }

  private:
    const copy_options_t& options_;
    copy_report_t& report_;
    copy_observer_t& observer_;
};

std::uint64_t& counter_of(copy_report_t& report, EItemKind kind) {
    switch (kind) {
        case EItemKind::eDirectory:
            return report.directories;
        case EItemKind::eLink:
            return report.links;
        case EItemKind::eHardLink:
            return report.hardLinks;
        default:
            return report.files;
    }
}

}  // namespace

copy_account_t::copy_account_t(const copy_options_t& options, item_sink_t& sink, copy_observer_t& observer)
    : options_(options),
      sink_(sink),
      observer_(observer),
      progress_(std::make_shared<byte_counter_t>(options, report_, observer)) {}

void copy_account_t::SpareKept(std::uint64_t bytes) {
    if (bytes != 0) {
        report_.resumedBytes += bytes;
        observer_.OnBytesSpared(bytes);
    }
}

void copy_account_t::Settle(const sent_item_t& sent) {
    try {
        CheckReadsBack(sent);
    } catch (const std::exception& error) {
        options_.remote.ThrowIfStopped();
        Fail(sent.shown, error.what());
        return;
    }
    if (sent.counts) {
        ++counter_of(report_, sent.kind);
        observer_.OnItemDone(sent.shown);
    }
}

void copy_account_t::CheckReadsBack(const sent_item_t& sent) const {
    if (sent.digest && sink_.Digest(sent.target) != sent.digest) {
        throw exc::CRuntimeExc("[%1] was written, but reads back differently.", sink_.Shown(sent.target));
    }
}

void copy_account_t::Fail(const std::string& shown, const std::string& text) {
    report_.failed.push_back({shown, text});
}

void copy_account_t::Warn(std::vector<copy_note_t> warnings) {
    std::vector<copy_note_t>& notes = options_.strict ? report_.failed : report_.warnings;
    for (copy_note_t& warning : warnings) {
        notes.push_back(std::move(warning));
    }
}

}  // namespace agent::copy
