#include "tarn/tarn_context.h"

#include <utility>

#include "tarn/lindir/lin_dir_enum.h"

namespace tarn {

IFsOperationsFactory::~IFsOperationsFactory() = default;

IRestrictedFsOperationsFactory::~IRestrictedFsOperationsFactory() = default;

CTarnContext& CTarnContext::Instance() {
    static CTarnContext instance;
    return instance;
}

CTarnContext::CTarnContext() : flrContext_(std::make_shared<CFLRContext>()) {}

// The order is stated here because it is not the reverse of the fields': factories go first, while the view's rules and
// the enumerations that they may use are still there.
CTarnContext::~CTarnContext() {
    restrictedFactories_.clear();
    factories_.clear();
    flrContext_.reset();
    enumerations_.clear();
}

// Both registrations let the replaced factory go after the lock: its destructor may come back into the context.

void CTarnContext::RegisterFsOperationsFactory(const std::string& word, std::shared_ptr<IFsOperationsFactory> factory) {
    const synch::lock_t lock(factoriesLock_);
    factories_[word].swap(factory);
}

void CTarnContext::RegisterRestrictedFsOperationsFactory(const std::string& word,
                                                         std::shared_ptr<IRestrictedFsOperationsFactory> factory) {
    const synch::lock_t lock(factoriesLock_);
    restrictedFactories_[word].swap(factory);
}

std::shared_ptr<IFsOperationsFactory> CTarnContext::FindFsOperationsFactory(const std::string& word) const {
    const synch::lock_t lock(factoriesLock_);
    const auto found = factories_.find(word);
    return found == factories_.end() ? nullptr : found->second;
}

void CTarnContext::GrantAccessToRestrictedFsPath(const std::string& word, const std::string& path, bool flag) {
    const synch::lock_t lock(factoriesLock_);
    const auto found = restrictedFactories_.find(word);
    if (found != restrictedFactories_.end() && found->second) {
        found->second->GrantAccessToPath(path, flag);
    }
}

std::string CTarnContext::GetRelativePathPrefix() const {
    return "RelativePath://";
}

std::shared_ptr<CFLRContext> CTarnContext::GetFLRContext() const {
    return flrContext_;
}

std::string CTarnContext::StartEnumFiles(const std::wstring& path, std::wstring& xml) {
    const auto enumerator = std::make_shared<lindir::lin_dir_enum>();
    std::string id = enumerator->StartEnum(path, xml);
    enumerations_[id] = enumerator;
    return id;
}

std::string CTarnContext::StartEnumFilesRecursive(const std::wstring& path, std::wstring& mask, std::wstring& xml) {
    const synch::recursive_lock_t lock(enumerationsLock_);
    const auto enumerator = std::make_shared<lindir::lin_dir_enum>();
    std::string id = enumerator->StartEnumRecursive(path, mask, xml);
    enumerations_[id] = enumerator;
    return id;
}

bool CTarnContext::EnumFilesGetNext(const std::string& id, std::wstring& xml) {
    return GetNextOrClose(id, xml, &lindir::lin_dir_enum::GetNext);
}

bool CTarnContext::EnumFilesGetNextRecursive(const std::string& id, std::wstring& xml) {
    const synch::recursive_lock_t lock(enumerationsLock_);
    return GetNextOrClose(id, xml, &lindir::lin_dir_enum::GetNextRecursive);
}

bool CTarnContext::GetNextOrClose(const std::string& id, std::wstring& xml, next_function_t next) {
    const auto found = enumerations_.find(id);
    if (found == enumerations_.end()) {
        return false;
    }
    if (!((*found->second).*next)(xml)) {
        enumerations_.erase(found);
        return false;
    }
    return true;
}

void CTarnContext::CloseFilesEnum(const std::string& id) {
    enumerations_.erase(id);
}

}  // namespace tarn
