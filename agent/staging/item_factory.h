#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mirrowen/io/area/area_dev_factory.h"

namespace agent {

/// Knows the tokens of agent items ("agent-item") and hands each item to whoever receives items on the calling thread
/// (see receiver_scope_t). It keeps nothing, so one object may stay registered for as long as the process lives. The
/// type word "file" is not served: it stays with the library's own factory. Any thread.
class item_factory_t final : public io::area::IAreaDevFactory {
  public:
    item_factory_t();
    ~item_factory_t() override;

    /// Appends "agent-item".
    void EnumTokenTypes(std::vector<std::string>& types) override;

    /// Reads an item's token; another type throws `exc::CRuntimeExc` "Token type [%1] is not served by the factory of
    /// items.".
    std::shared_ptr<io::area::IAreaDevToken> LoadToken(const std::string& type,
                                                       io::binary_stream_tt& stream) const override;

    /// Throws `exc::CNotImplExc`: items are only received here.
    std::shared_ptr<io::area::area_read_dev_t> CreateReadDev(
        std::shared_ptr<io::area::IAreaDevToken> token) const override;

    /// The device that the thread's receiver gives. `size` null or 0: unknown. Throws `exc::CRuntimeExc` "Token [%1] is
    /// not that of an item.", "Incremental items are not served: [%1].", "Items are not received here: [%1]."; and what
    /// the receiver throws, early `exc::CAlreadyExistsExc` included.
    std::shared_ptr<io::area::area_write_dev_t> CreateWriteDev(std::shared_ptr<io::area::IAreaDevToken> token,
                                                               bool incremental, unsigned long* size,
                                                               bool overwrite) override;

    /// Throws `exc::CNotImplExc`.
    std::shared_ptr<io::area::area_write_dev_t> CreateWriteDevForHVIR(std::shared_ptr<io::area::IAreaDevToken> token,
                                                                      unsigned long* size) override;
};

}  // namespace agent
