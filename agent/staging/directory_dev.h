#pragma once

#include "agent/root/confined_root.h"
#include "agent/staging/item_dev.h"

namespace agent {

/// Receives a directory. A directory's own item follows its contents, so it usually finds the directory there, made
/// with mode 0700 for the first of them, and gives it its attributes, times last.
class directory_dev_t final : public item_dev_t {
  public:
    /// Refuses early, as Finish does, a bad name, a link among the parents and, with `eNo`, something else at the path.
    directory_dev_t(std::shared_ptr<staging_t> staging, item_t item, EReplace replace, group_slot_t slot = {});
    ~directory_dev_t() override;

    /// PlaceDirectory, with its errors; both the directory and its entry are durable afterwards ("Failed to sync
    /// [%1]").
    void Finish(std::shared_ptr<synch::completion_port_t> port) override;
};

}  // namespace agent
