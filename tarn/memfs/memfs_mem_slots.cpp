#include "tarn/memfs/memfs_mem_slots.h"

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/guid/guid.h"

namespace tarn::memfs {

memfs_mem_slots_t::memfs_mem_slots_t() = default;

memfs_mem_slots_t::~memfs_mem_slots_t() = default;

memfs_mem_slots_t& memfs_mem_slots_t::Inst() {
    static memfs_mem_slots_t registry;
    return registry;
}

std::shared_ptr<memfs_mem_slots_t::buffer_t> memfs_mem_slots_t::CreateSlot(const std::string& name) {
    const synch::lock_t lock(mutex_);
    auto buffer = std::make_shared<buffer_t>();
    slots_.insert_or_assign(name, buffer);
    return buffer;
}

std::shared_ptr<memfs_mem_slots_t::buffer_t> memfs_mem_slots_t::GetSlotExc(const std::string& name) {
    const synch::lock_t lock(mutex_);
    const auto found = slots_.find(name);
    if (found == slots_.end()) {
        throw exc::CRuntimeExc("Memory slot does not exist: [%1].", name);
    }
    return found->second;
}

bool memfs_mem_slots_t::IsSlotExists(const std::string& name) {
    const synch::lock_t lock(mutex_);
    return slots_.contains(name);
}

void memfs_mem_slots_t::DeleteSlot(const std::string& name) {
    const synch::lock_t lock(mutex_);
    slots_.erase(name);
}

std::string memfs_mem_slots_t::GetTempSlotName(const std::string& prefix) {
    const synch::lock_t lock(mutex_);
    for (;;) {
        std::string candidate = prefix + "_" + guid::guid_t::Create().ToAStr();
        if (!slots_.contains(candidate)) {
            return candidate;
        }
    }
}

void memfs_mem_slots_t::Clear() {
    const synch::lock_t lock(mutex_);
    slots_.clear();
}

}  // namespace tarn::memfs
