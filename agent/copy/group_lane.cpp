#include "agent/copy/group_lane.h"

#include <exception>
#include <utility>

#include "mirrowen/logging/log_exc.h"

namespace agent::copy {

group_lane_t::group_lane_t(const copy_options_t& options, item_sink_t& sink, const guid::guid_t& copy, EJobs jobs)
    : options_(options), sink_(sink), copy_(copy), jobs_(jobs) {}

group_lane_t::~group_lane_t() {
    GiveUp();
}

void group_lane_t::Put(batch::batch_t batch) {
    Post([this, held = std::make_shared<const batch::batch_t>(std::move(batch))] { PutNow(*held); });
}

void group_lane_t::Commit(std::vector<sent_item_t> items) {
    const std::uint64_t entries = items.size();
    committing_.push_back(std::move(items));
    Post([this, entries] { CommitNow(entries); });
}

void group_lane_t::Post(std::function<void()> job) {
    if (jobs_ == EJobs::eAtOnce) {
        job();
    } else {
        lane_.Post(std::move(job));
    }
}

void group_lane_t::Drain() {
    lane_.Drain();
}

// Nothing more is put for a copy that ends early; whoever ends it says why.
std::string group_lane_t::WhyOver() const {
    if (options_.remote.stop.stop_requested()) {
        return "The work was cancelled.";
    }
    return abandoned_ ? "The copy was given up." : "";
}

void group_lane_t::PutNow(const batch::batch_t& batch) {
    std::string fault;
    if (!fault_.empty() || TryPut(batch, fault) || TryPut(batch, fault)) {
        return;
    }
    fault_ = std::move(fault);
}

bool group_lane_t::TryPut(const batch::batch_t& batch, std::string& fault) const {
    fault = WhyOver();
    if (!fault.empty()) {
        return false;
    }
    try {
        sink_.PutBatch(batch, options_.overwrite);
        return true;
    } catch (const std::exception& error) {
        logging::LogExc(error, "A batch could not be put.");
        fault = error.what();
        return false;
    }
}

void group_lane_t::CommitNow(std::uint64_t entries) {
    result_t result;
    result.fault = std::exchange(fault_, {});
    if (result.fault.empty()) {
        result.fault = WhyOver();
    }
    if (result.fault.empty()) {
        try {
            result.committed = sink_.Commit(copy_, entries);
        } catch (const std::exception& error) {
            result.fault = error.what();
        }
    }
    const synch::lock_t lock(mutex_);
    results_.push_back(std::move(result));
}

std::optional<group_lane_t::result_t> group_lane_t::TakeResult() {
    const synch::lock_t lock(mutex_);
    if (results_.empty()) {
        return std::nullopt;
    }
    result_t result = std::move(results_.front());
    results_.pop_front();
    return result;
}

std::optional<group_lane_t::done_t> group_lane_t::TakeDone() {
    std::optional<result_t> result = TakeResult();
    if (!result) {
        return std::nullopt;
    }
    done_t done;
    done.items = std::move(committing_.front());
    committing_.pop_front();
    done.faults.assign(done.items.size(), result->fault);
    for (item_sink_t::lost_entry_t& lost : result->committed.lost) {
        if (lost.number < done.faults.size()) {
            done.faults[lost.number] = std::move(lost.text);
        }
    }
    done.warnings = std::move(result->committed.warnings);
    done.warned = std::move(result->committed.warned);
    return done;
}

}  // namespace agent::copy
