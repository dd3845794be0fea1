#include "agent/staging/item_factory.h"

#include "agent/staging/receiver_scope.h"
#include "agent/token/item_token.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"

namespace agent {

namespace {

const item_t& ItemOf(const std::shared_ptr<io::area::IAreaDevToken>& token) {
    const auto* known = dynamic_cast<const item_token_t*>(token.get());
    if (known == nullptr) {
        throw exc::CRuntimeExc("Token [%1] is not that of an item.", token ? token->GetType() : std::string());
    }
    return known->GetItem();
}

}  // namespace

item_factory_t::item_factory_t() = default;

item_factory_t::~item_factory_t() = default;

void item_factory_t::EnumTokenTypes(std::vector<std::string>& types) {
    types.push_back(item_token_t::GetTypeString());
}

std::shared_ptr<io::area::IAreaDevToken> item_factory_t::LoadToken(const std::string& type,
                                                                   io::binary_stream_tt& stream) const {
    if (type != item_token_t::GetTypeString()) {
        throw exc::CRuntimeExc("Token type [%1] is not served by the factory of items.", type);
    }
    return item_token_t::Unserial(stream);
}

std::shared_ptr<io::area::area_read_dev_t> item_factory_t::CreateReadDev(
    std::shared_ptr<io::area::IAreaDevToken> /*token*/) const {
    throw exc::CNotImplExc("item_factory_t", "CreateReadDev");
}

std::shared_ptr<io::area::area_write_dev_t> item_factory_t::CreateWriteDev(
    std::shared_ptr<io::area::IAreaDevToken> token, bool incremental, unsigned long* size, bool overwrite) {
    const item_t& item = ItemOf(token);
    if (incremental) {
        throw exc::CRuntimeExc("Incremental items are not served: [%1].", item.path);
    }
    const auto receiver = receiver_scope_t::Current();
    if (!receiver) {
        throw exc::CRuntimeExc("Items are not received here: [%1].", item.path);
    }
    return receiver->Receive(item, size == nullptr ? 0 : *size, overwrite ? EReplace::eYes : EReplace::eNo);
}

std::shared_ptr<io::area::area_write_dev_t> item_factory_t::CreateWriteDevForHVIR(
    std::shared_ptr<io::area::IAreaDevToken> /*token*/, unsigned long* /*size*/) {
    throw exc::CNotImplExc("item_factory_t", "CreateWriteDevForHVIR");
}

}  // namespace agent
