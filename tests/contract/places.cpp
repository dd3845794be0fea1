#include "tests/contract/places.h"

#include "tarn/memfs/memfs_mem_slots.h"

namespace contract {

traits_t host_place_t::Traits() {
    return {.diskRefusal = "HostFS doesn't support disk operations. Disk path: [%1].",
            .openFailure = "Failed to open file [%1] for reading.",
            .deviations = {}};
}

void SetRefusal(traits_t& traits, EFeature feature, const std::string& text, const std::string& reason) {
    std::erase_if(traits.deviations, [&](const deviation_t& deviation) { return deviation.feature == feature; });
    traits.deviations.push_back({feature, text, reason});
}

std::string host_place_t::Path(const std::string& name) const {
    const std::string dir = dir_.path();
    return name.empty() ? dir : dir + "/" + name;
}

std::string host_place_t::InvalidPath() const {
    return Path(std::string(300, 'x'));  // a name has 255 bytes at most
}

memory_place_t::~memory_place_t() {
    tarn::memfs::memfs_mem_slots_t::Inst().Clear();
}

traits_t memory_place_t::Traits() {
    const auto unsupported = [](const std::string& operation) {
        return "MEMFS: operation does not supported. Operation: [" + operation + "].";
    };
    const std::string flat = "names in memory are flat";
    const std::string once = "a file in memory is written once, from its start";
    const std::string plain = "a slot is bytes and nothing else";
    return {.diskRefusal = "MemFS doesn't support disk operations. Disk path: [%1].",
            .openFailure = "MemFS: Cannot open file. File path: [%1].",
            .deviations = {
                {EFeature::eDirectories, unsupported("CreateDir"), flat},
                {EFeature::eRename, unsupported("RenameFile"), flat},
                {EFeature::eUpdate, "Failed to open file '%1' for incremental update.", once},
                {EFeature::ePresize, "", "memory is taken as it is needed; the length is only logged"},
                {EFeature::eKeepsExisting, "", "creating always starts a new slot, the flag is ignored"},
                {EFeature::eDeleteTellsMiss, "", "a slot that is not there needs no deleting"},
                {EFeature::eReadSeek, "mem_rstream_t::SeekTo is not implemented.", "reading is sequential"},
                {EFeature::eWriteSeek, "MemFs does not support seek operation.", once},
                {EFeature::eShortReadThrows, "", "the buffer may still grow, so its end is no failure"},
                {EFeature::eCloses, "", "streams share the buffer, there is nothing to close"},
                {EFeature::eAttributes, "", plain},
                {EFeature::eSetAttributes, unsupported("SetFileMetadata"), plain},
                {EFeature::eLinks, unsupported("CreateSymLink"), plain},
                {EFeature::eBackupMedia, unsupported("GetBackupMedia"), "backups are not kept in memory"},
            }};
}

std::string memory_place_t::Path(const std::string& name) const {
    return "MemFs://" + name;
}

std::string memory_place_t::InvalidPath() const {
    return "no-prefix";
}

}  // namespace contract
