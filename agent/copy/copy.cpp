#include "agent/copy/copy.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <utility>

#include "agent/copy/copier.h"
#include "agent/copy/copy_job.h"
#include "agent/copy/copy_planner.h"
#include "agent/copy/copy_source.h"
#include "agent/copy/item_sink.h"
#include "agent/copy/local_sink.h"
#include "agent/copy/path_sink.h"
#include "agent/copy/remote_sink.h"
#include "agent/path/describe_path.h"
#include "agent/path/location.h"
#include "mirrowen/exc/runtime_exc.h"

namespace agent::copy {

namespace {

std::unique_ptr<item_sink_t> open_sink(const std::string& destination, const copy_options_t& options) {
    location_t location = ParseLocation(destination);
    if (location.isRemote) {
        return std::make_unique<remote_sink_t>(std::move(location), options);
    }
    if (DescribePath(destination).backend == "host") {
        return std::make_unique<local_sink_t>(destination, options);
    }
    return std::make_unique<path_sink_t>(destination, options);
}

bool is_directory(const copy_source_t& source) {
    const std::optional<tree_entry_t> entry = source.tree->TryExamine(source.top);
    return entry && entry->brief.kind == EEntryKind::eDirectory;
}

bool leads_into(const std::filesystem::path& from, const std::filesystem::path& to) {
    return std::mismatch(from.begin(), from.end(), to.begin(), to.end()).first == from.end();
}

// A copy into its own source would find its own results and copy them again.
void refuse_copy_into_itself(const std::string& source, const std::string& destination) {
    const location_t from = ParseLocation(source);
    const location_t to = ParseLocation(destination);
    const bool into = from.isRemote ? to.isRemote && from.endpoint == to.endpoint && leads_into(from.path, to.path)
                                    : !to.isRemote && leads_into(std::filesystem::weakly_canonical(source),
                                                                 std::filesystem::weakly_canonical(destination));
    if (into) {
        throw exc::CRuntimeExc("[%1] cannot be copied into itself, [%2].", source, destination);
    }
}

void check_places(const std::vector<copy_source_t>& sources, const std::string& destination) {
    const std::string backend = DescribePath(destination).backend;
    if (backend != "agent" && backend != "host") {
        return;
    }
    for (const copy_source_t& source : sources) {
        if (source.form == copy_source_t::EForm::eTree && is_directory(source)) {
            refuse_copy_into_itself(source.text, destination);
        }
    }
}

std::vector<copy_job_t> assign_targets(std::vector<copy_source_t> sources, const std::string& destination,
                                       item_sink_t& sink) {
    const bool below = sink.IsDirectory("");
    if (!below && sources.size() > 1) {
        throw exc::CRuntimeExc("[%1] is not a directory, so it takes a single source.", destination);
    }
    std::vector<copy_job_t> jobs;
    for (copy_source_t& source : sources) {
        if (below && source.form == copy_source_t::EForm::eInput) {
            throw exc::CRuntimeExc("[%1] is a directory: standard input needs a file name.", destination);
        }
        const std::string target = below ? source.baseName : "";
        jobs.push_back({std::move(source), target, below && target.empty()});
    }
    return jobs;
}

// A single item waits for nobody.
gathering_t gathering_of(const copy_options_t& options, const item_sink_t& sink, std::uint64_t items) {
    const bool several = items > 1;
    return {.groups = several && options.durability == EDurability::eTree && sink.TakesGroups(),
            .batches = several && options.batchLimit != 0 && sink.TakesBatches()};
}

}  // namespace

copy_observer_t::~copy_observer_t() = default;
void copy_observer_t::OnPlanned(std::uint64_t, std::uint64_t) {}
void copy_observer_t::OnBytes(std::uint64_t) {}
void copy_observer_t::OnBytesSpared(std::uint64_t) {}
void copy_observer_t::OnItemDone(const std::string&) {}
void copy_observer_t::OnDecision(const std::string&, const std::string&) {}

copy_report_t Copy(const std::vector<std::string>& sources, const std::string& destination,
                   const copy_options_t& options, copy_observer_t& observer) {
    std::vector<copy_source_t> opened;
    opened.reserve(sources.size());
    for (const std::string& source : sources) {
        opened.push_back(OpenCopySource(source, options));
    }
    check_places(opened, destination);
    const std::unique_ptr<item_sink_t> sink = open_sink(destination, options);
    const std::vector<copy_job_t> jobs = assign_targets(std::move(opened), destination, *sink);

    copy_planner_t planner(options, *sink);
    for (const copy_job_t& job : jobs) {
        planner.Plan(job);
    }
    observer.OnPlanned(planner.Items(), planner.Bytes());

    if (!options.dryRun) {
        sink->Begin();
    }
    copier_t copier(options, *sink, observer, gathering_of(options, *sink, planner.Items()));
    for (const copy_job_t& job : jobs) {
        copier.Run(job);
    }
    copy_report_t report = copier.Finish();
    sink->End();
    return report;
}

}  // namespace agent::copy
