#include "tarn/batch/batch_area_dev_factory.h"

#include <exception>

#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/batch/batch_area_dev_token.h"

namespace tarn::batch {

CBatchAreaDevFactory::~CBatchAreaDevFactory() = default;

void CBatchAreaDevFactory::EnumTokenTypes(std::vector<std::string>& types) {
    types.push_back(CBatchAreaDevToken::GetTokenType());
}

std::shared_ptr<io::area::IAreaDevToken> CBatchAreaDevFactory::LoadToken(const std::string& type,
                                                                         io::binary_stream_tt& stream) const {
    if (type != CBatchAreaDevToken::GetTokenType()) {
        throw exc::CRuntimeExc("Token type '%1' is not supported by bacth area dev factory.", type);
    }
    return CBatchAreaDevToken::Unserial(stream);
}

std::shared_ptr<io::area::area_read_dev_t> CBatchAreaDevFactory::CreateReadDev(
    std::shared_ptr<io::area::IAreaDevToken> /*token*/) const {
    try {
        throw exc::CRuntimeExc("Not supported.");
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to create read device for batch upload.");
    }
}

std::shared_ptr<io::area::area_write_dev_t> CBatchAreaDevFactory::CreateWriteDev(
    std::shared_ptr<io::area::IAreaDevToken> /*token*/, bool /*incremental*/, unsigned long* /*size*/,
    bool /*overwrite*/) {
    try {
        throw exc::CRuntimeExc("Not supported.");
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to create write device for batch upload.");
    }
}

std::shared_ptr<io::area::area_write_dev_t> CBatchAreaDevFactory::CreateWriteDevForHVIR(
    std::shared_ptr<io::area::IAreaDevToken> /*token*/, unsigned long* /*size*/) {
    throw exc::CRuntimeExc("Batch processing does not support HVIR.");
}

}  // namespace tarn::batch
