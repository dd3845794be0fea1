#include "corvel/corvel_ctx.h"

#include <atomic>
#include <utility>
#include <vector>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/synch/mutex.h"

struct CCorvelCtx::state_t {
    using factories_t = std::map<std::string, std::shared_ptr<io::area::IAreaDevFactory>>;

    // Neither the mapper nor a factory is called while the lock is held: they may come back into the context.
    std::shared_ptr<const relative_path_mapper_t> Mapper() const {
        const synch::lock_t lock(mutex);
        return mapper;
    }

    factories_t Factories() const {
        const synch::lock_t lock(mutex);
        return factories;
    }

    mutable synch::mutex_t mutex;
    std::shared_ptr<const relative_path_mapper_t> mapper GUARDED_BY(mutex);
    factories_t factories GUARDED_BY(mutex);
    std::atomic<bool> nonPrefixPathsDisabled{false};
};

std::shared_ptr<CCorvelCtx> CCorvelCtx::Inst() {
    // Never destroyed, so objects that end with the process may still ask.
    static const auto* const instance = new std::shared_ptr<CCorvelCtx>(std::make_shared<CCorvelCtx>());
    return *instance;
}

CCorvelCtx::CCorvelCtx() : state_(std::make_unique<state_t>()) {}

CCorvelCtx::~CCorvelCtx() = default;

std::string CCorvelCtx::TryMapRelativePath(const std::string& path) const {
    const auto mapper = state_->Mapper();
    return mapper ? (*mapper)(path) : path;
}

void CCorvelCtx::SetRelativePathMapper(relative_path_mapper_t mapper) {
    std::shared_ptr<const relative_path_mapper_t> next;
    if (mapper) {
        next = std::make_shared<const relative_path_mapper_t>(std::move(mapper));
    }
    const synch::lock_t lock(state_->mutex);
    state_->mapper.swap(next);
}

bool CCorvelCtx::IsNonPrefixPathesDisabled() const noexcept {
    return state_->nonPrefixPathsDisabled;
}

void CCorvelCtx::SetNonPrefixPathesDisabled(bool disabled) noexcept {
    state_->nonPrefixPathsDisabled = disabled;
}

std::shared_ptr<io::area::IAreaDevFactory> CCorvelCtx::GetAreaDevFactory(const std::string& type) const {
    const synch::lock_t lock(state_->mutex);
    const auto found = state_->factories.find(type);
    if (found == state_->factories.end()) {
        throw exc::CRuntimeExc("Area device factory for token type [%1] is not registered.", type);
    }
    return found->second;
}

void CCorvelCtx::RegisterAreaDevFactory(const std::shared_ptr<io::area::IAreaDevFactory>& factory) {
    if (!factory) {
        throw exc::CRuntimeExc("Area device factory to register is empty.");
    }
    std::vector<std::string> types;
    factory->EnumTokenTypes(types);
    const auto previous = state_->Factories();  // let go after the lock, whatever it then destroys
    const synch::lock_t lock(state_->mutex);
    for (const std::string& type : types) {
        state_->factories[type] = factory;
    }
}
