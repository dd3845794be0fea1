#pragma once

#include <map>
#include <memory>
#include <string>

#include "mirrowen/cnt/array.h"
#include "mirrowen/synch/mutex.h"
#include "tarn/export.h"

namespace tarn::memfs {

/// The files in memory of this process: one growable buffer a name. Names are bytes, case-sensitive; there is no limit
/// on their number or on a buffer's size.
///
/// Any thread may call any operation; one mutex guards the map, not the bytes in the buffers. A buffer is shared with
/// the streams that are open on it: taking its slot away, or putting another buffer in its place, leaves them theirs.
class TARN_API memfs_mem_slots_t {
  public:
    using buffer_t = cnt::array_t<char>;

    /// The process's registry, made on first use; its buffers go when the process exits.
    static memfs_mem_slots_t& Inst();

    memfs_mem_slots_t(const memfs_mem_slots_t&) = delete;
    memfs_mem_slots_t& operator=(const memfs_mem_slots_t&) = delete;

    /// A new, empty buffer under `name`, in place of one that is there.
    std::shared_ptr<buffer_t> CreateSlot(const std::string& name);

    /// The buffer of `name`. A missing slot throws `exc::CRuntimeExc` "Memory slot does not exist: [%1].".
    std::shared_ptr<buffer_t> GetSlotExc(const std::string& name);

    bool IsSlotExists(const std::string& name);

    /// Takes `name` away; a missing one is fine.
    void DeleteSlot(const std::string& name);

    /// `prefix`, '_' and a new GUID: a name that no slot has now. It is not reserved; the caller makes the slot.
    std::string GetTempSlotName(const std::string& prefix);

    /// Takes every slot away.
    void Clear();

  private:
    memfs_mem_slots_t();
    ~memfs_mem_slots_t();

    synch::mutex_t mutex_;
    std::map<std::string, std::shared_ptr<buffer_t>> slots_ GUARDED_BY(mutex_);
};

}  // namespace tarn::memfs
