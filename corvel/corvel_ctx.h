#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "corvel/export.h"
#include "mirrowen/io/area/area_dev_factory.h"

/// The process-wide context: how relative paths are mapped, which paths are allowed, and which factory serves which
/// kind of area-device token. The embedding agent sets it up before it uses the library; every call may come from any
/// thread.
class CORVEL_API CCorvelCtx {
  public:
    /// Maps a path to a real location or returns it unchanged; may throw to refuse it. Called on every dispatch, from
    /// any thread, so it must be thread-safe.
    using relative_path_mapper_t = std::function<std::string(const std::string& path)>;

    /// The process's context; never empty.
    static std::shared_ptr<CCorvelCtx> Inst();

    CCorvelCtx();
    ~CCorvelCtx();
    CCorvelCtx(const CCorvelCtx&) = delete;
    CCorvelCtx& operator=(const CCorvelCtx&) = delete;

    /// The path mapped to a real location when it is a relative path, otherwise the path unchanged. Throws what the
    /// mapper throws. Without a mapper every path comes back unchanged.
    std::string TryMapRelativePath(const std::string& path) const;
    /// An empty mapper removes the one in force.
    void SetRelativePathMapper(relative_path_mapper_t mapper);

    /// Whether plain paths that carry no backend prefix are refused; off by default.
    bool IsNonPrefixPathesDisabled() const noexcept;
    void SetNonPrefixPathesDisabled(bool disabled) noexcept;

    /// The factory that serves tokens of `type` (exact match). An unknown type throws `exc::CRuntimeExc`
    /// "Area device factory for token type [%1] is not registered.".
    std::shared_ptr<io::area::IAreaDevFactory> GetAreaDevFactory(const std::string& type) const;
    /// Files the factory under each of its token types; a type that is taken already gets the new factory.
    void RegisterAreaDevFactory(const std::shared_ptr<io::area::IAreaDevFactory>& factory);

  private:
    struct state_t;
    std::unique_ptr<state_t> state_;
};
