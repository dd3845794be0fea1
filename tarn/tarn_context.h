#pragma once

#include <map>
#include <memory>
#include <string>

#include "mirrowen/synch/mutex.h"
#include "mirrowen/util/str.h"
#include "tarn/export.h"
#include "tarn/flr/flr_context.h"
#include "tarn/fs_operations.h"
#include "tarn/fs_operations_config.h"

namespace tarn {

namespace lindir {
class lin_dir_enum;
}

/// Makes backends of one kind. Implemented by the cloud backend and by the embedding agent; called from any thread. The
/// caller finds it by its word in `CTarnContext` and owns what it makes.
class TARN_API IFsOperationsFactory {
  public:
    virtual ~IFsOperationsFactory();
    /// A new backend; what it throws reaches the caller unchanged.
    virtual std::shared_ptr<fs_operations_t> CreateFsOperations(const SFsOperationsConfig& config) = 0;
};

/// Makes backends that serve granted paths only. Called from any thread.
class TARN_API IRestrictedFsOperationsFactory {
  public:
    virtual ~IRestrictedFsOperationsFactory();
    /// A new backend that serves the paths granted so far; what it throws reaches the caller unchanged.
    virtual std::shared_ptr<fs_operations_t> CreateFsOperations(const SFsOperationsConfig& config) = 0;
    /// Records that `path` may be used through this factory's backends; what `flag` means is the factory's to say. The
    /// context calls it under the lock of its registries: it must not call back into them.
    virtual void GrantAccessToPath(const std::string& path, bool flag) = 0;
};

/// The process-wide state of the library: the factories of further backends by prefix word, the mapping rules of the
/// restore view, and the open enumerations. Every call may come from any thread, but see StartEnumFiles.
///
/// A prefix word is whatever its owner chose, without a separator; words are compared whole, ASCII case ignored. There
/// is no way to remove a factory but to register another one under its word.
class TARN_API CTarnContext {
  public:
    /// The one context: made by the first call, destroyed by an exit handler. A thread that outlives `main` must not
    /// call it any more.
    static CTarnContext& Instance();

    CTarnContext(const CTarnContext&) = delete;
    CTarnContext& operator=(const CTarnContext&) = delete;

    /// Files the factory under `word`; the one that was there is released, and lives on while others hold it.
    void RegisterFsOperationsFactory(const std::string& word, std::shared_ptr<IFsOperationsFactory> factory);
    /// The same for a restricted factory; the two registries do not see each other.
    void RegisterRestrictedFsOperationsFactory(const std::string& word,
                                               std::shared_ptr<IRestrictedFsOperationsFactory> factory);

    /// The factory of `word`, or an empty pointer when there is none. Also empty for a word of a restricted factory:
    /// those are reached through their own objects.
    std::shared_ptr<IFsOperationsFactory> FindFsOperationsFactory(const std::string& word) const;

    /// Hands `path` and `flag` to the restricted factory of `word`; does nothing when there is none. What the factory
    /// throws reaches the caller.
    void GrantAccessToRestrictedFsPath(const std::string& word, const std::string& path, bool flag);

    /// "RelativePath://".
    std::string GetRelativePathPrefix() const;

    /// The mapping rules of the restore view; never empty, always the same object.
    std::shared_ptr<CFLRContext> GetFLRContext() const;

    /// Describes the host object at `path` into `xml` and opens a session about it, whose identifier is returned; what
    /// `lindir::lin_dir_enum::StartEnum` throws comes through and leaves no session. A session lasts until it is
    /// closed, until it has no more entries, or as long as the context.
    ///
    /// Of the five only the recursive ones serialise themselves. Whoever starts, reads or closes sessions of the other
    /// kind sees to it that nobody opens or closes any session meanwhile.
    std::string StartEnumFiles(const std::wstring& path, std::wstring& xml);
    /// The same with `lindir::lin_dir_enum::StartEnumRecursive`.
    std::string StartEnumFilesRecursive(const std::wstring& path, std::wstring& mask, std::wstring& xml);
    /// The next entry of session `id` into `xml`; false for an unknown session, and at the end, which closes it. What
    /// the enumerator throws comes through.
    bool EnumFilesGetNext(const std::string& id, std::wstring& xml);
    bool EnumFilesGetNextRecursive(const std::string& id, std::wstring& xml);
    /// Closes a session; an unknown one is none. The enumerator goes with its last user.
    void CloseFilesEnum(const std::string& id);

  protected:
    /// Only Instance makes the context of a process; further ones are for tests. A mutex that cannot be made throws
    /// `boost::thread_resource_error`.
    CTarnContext();
    ~CTarnContext();

    using enumerations_t = std::map<std::string, std::shared_ptr<lindir::lin_dir_enum>>;
    /// The open enumerations, for tests that bring one of their own.
    enumerations_t& Enumerations() noexcept { return enumerations_; }

  private:
    template <class Factory>
    using registry_t = std::map<std::string, std::shared_ptr<Factory>, util::str_case_insensitive_less_operator>;

    using next_function_t = bool (lindir::lin_dir_enum::*)(std::wstring& xml);
    bool GetNextOrClose(const std::string& id, std::wstring& xml, next_function_t next);

    enumerations_t enumerations_;  ///< open enumerations by session identifier
    synch::recursive_mutex_t enumerationsLock_;
    std::shared_ptr<CFLRContext> flrContext_;
    mutable synch::mutex_t factoriesLock_;  ///< never held together with enumerationsLock_
    registry_t<IFsOperationsFactory> factories_ GUARDED_BY(factoriesLock_);
    registry_t<IRestrictedFsOperationsFactory> restrictedFactories_ GUARDED_BY(factoriesLock_);
};

}  // namespace tarn
