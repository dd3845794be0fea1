#include "agent/staging/partial_file.h"

#include <exception>
#include <utility>

#include "mirrowen/logging/log_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace agent {

partial_file_t::partial_file_t(std::shared_ptr<const confined_root_t> folder, std::string name,
                               std::shared_ptr<posix::posix_file_t> file)
    : folder_(std::move(folder)), name_(std::move(name)), file_(std::move(file)) {}

partial_file_t::~partial_file_t() {
    try {
        if (here_ && file_->GetSize() == 0) {
            Remove();
        }
    } catch (const std::exception& error) {
        logging::LogExc(error, "Failed to look at a file that may be resumed.");
    }
}

void partial_file_t::MoveTo(const confined_root_t& folder, const std::string& name) {
    RenameAt(folder_->GetDescriptor(), name_, folder.GetDescriptor(), name, EReplace::eYes, folder.Shown(name));
    here_ = false;
}

void partial_file_t::Remove() noexcept {
    static_cast<void>(posix::sys().ftruncate(file_->GetDescriptor(), 0));
    if (std::exchange(here_, false)) {
        posix::sys().unlinkat(folder_->GetDescriptor(), name_.c_str(), 0);
    }
}

}  // namespace agent
