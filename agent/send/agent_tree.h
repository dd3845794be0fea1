#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/copy/item_source.h"
#include "agent/net/remote_options.h"
#include "agent/path/location.h"
#include "agent/query/query_client.h"
#include "agent/send/send_client.h"
#include "mirrowen/io/block/buf_transform.h"

namespace agent::send {

/// What lies below the root of another agent, as a tree that can be looked through, copied and compared: the query
/// service says what is there, the send service delivers it. Names are below the far end's root. Connections are opened
/// when they are needed, and anew when the far end may have given them up or an item has failed.
class agent_tree_t final : public copy::item_source_t {
  public:
    /// `compression`: what files are packed by on their way.
    agent_tree_t(net::endpoint_t endpoint, net::remote_options_t options, io::block::EBufTransformType compression);
    ~agent_tree_t() override;

    /// A location: "tarn://HOST:PORT/name".
    std::string Shown(const std::string& name) const override;
    /// Errors of this and of List: those of `query_client_t`.
    std::optional<tree_entry_t> TryExamine(const std::string& name) override;
    std::vector<tree_entry_t> List(const std::string& directory) override;
    /// Errors are those of `send_client_t::Open`, and `exc::CRuntimeExc` "[%1] is a %2 now, no longer a %3.".
    copy::loaded_item_t Load(const tree_entry_t& entry, const std::string& target, const copy::load_options_t& options,
                             std::vector<copy::copy_note_t>& warnings) override;
    /// No: what is read comes over the connection.
    bool ReadsTwice() const override { return false; }

  private:
    query::query_client_t& Query();

    const net::endpoint_t endpoint_;
    const net::remote_options_t options_;
    const io::block::EBufTransformType compression_;
    std::unique_ptr<query::query_client_t> query_;
    send_client_t sends_;
};

}  // namespace agent::send
