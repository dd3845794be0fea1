#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "agent/token/item.h"
#include "tarn/blocks/file_area_dev_token.h"

namespace agent {

/// Names one item of a tree between agents: what it is, where it goes and the attributes that it gets. The serial form
/// is in docs/formats.md ("Agent item"). Immutable, so it may be shared between threads.
///
/// `GetPath` is "agent-item://" and the item's path, which is no path of any backend and which the gate of a session
/// refuses: whoever has a file's token before him would take its path and change what lies there by now, be it through
/// a link. The item's device gives it its attributes by descriptor.
class item_token_t final : public tarn::CFileAreaDevToken {
  public:
    /// Throws what CheckItem throws.
    explicit item_token_t(item_t item);
    ~item_token_t() override;

    /// "agent-item".
    std::string GetType() override;
    /// The item's path.
    std::string Path4Log() override;
    /// Throws the stream's errors.
    void Serial(io::binary_stream_tt& stream) const override;

    const item_t& GetItem() const noexcept { return item_; }

    /// "agent-item": the word that travels outside the token and selects the factory.
    static std::string GetTypeString();

    /// Reads a token. Any failure is thrown as `exc::CRuntimeExc` "Failed to read the token of an item." with its
    /// cause: the stream's error, "Version [%1] of an item is not known.", "Kind [%1] of an item is not known.",
    /// "Flags [%1] of an item are not known.", "A deferred item has no number.", CheckItem's or those of the
    /// attributes. Texts longer than a name may be are refused before they are read.
    static std::shared_ptr<io::area::IAreaDevToken> Unserial(io::binary_stream_tt& stream);

    /// The version that is written, and the only one that is read.
    static constexpr std::uint32_t kVersion = 2;

  private:
    const item_t item_;
};

}  // namespace agent
