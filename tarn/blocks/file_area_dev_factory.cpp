#include "tarn/blocks/file_area_dev_factory.h"

#include <cstdint>
#include <exception>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/str.h"
#include "tarn/blocks/file_area_dev_token.h"
#include "tarn/blocks/open_blocks_writer.h"
#include "tarn/fs_log.h"

namespace tarn {

CFileAreaDevFactory::~CFileAreaDevFactory() = default;

void CFileAreaDevFactory::EnumTokenTypes(std::vector<std::string>& types) {
    types.push_back(CFileAreaDevToken::GetTypeString());
}

std::shared_ptr<io::area::IAreaDevToken> CFileAreaDevFactory::LoadToken(const std::string& type,
                                                                        io::binary_stream_tt& stream) const {
    if (type != CFileAreaDevToken::GetTypeString()) {
        throw exc::CRuntimeExc("Specified type of reader '%1' is not supported by the file factory.", type);
    }
    return CFileAreaDevToken::Unserial(stream);
}

std::shared_ptr<io::area::area_read_dev_t> CFileAreaDevFactory::CreateReadDev(
    std::shared_ptr<io::area::IAreaDevToken> /*token*/) const {
    throw exc::CRuntimeExc("CFileAreaDevFactory::CreateReadDev(): not implemented.");
}

std::shared_ptr<io::area::area_write_dev_t> CFileAreaDevFactory::CreateWriteDev(
    std::shared_ptr<io::area::IAreaDevToken> token, bool incremental, unsigned long* size, bool overwrite) {
    const auto file = std::dynamic_pointer_cast<CFileAreaDevToken>(token);
    if (!file) {
        throw exc::CRuntimeExc("Invalid type of the specified token: '%1'.", token ? token->GetType() : std::string());
    }
    const std::string path = file->GetPath();
    try {
        const std::uint64_t length = size != nullptr ? *size : 0;
        fs_log.info("Opening file writer. Path: '%1'. Size: '%2'. Is incremental writer: '%3'.", path,
                    util::str_from_streamsize(length), util::str_from_bool(incremental));
        return blocks::OpenBlocksWriter(path, length, incremental, overwrite);
    } catch (const exc::CAlreadyExistsExc&) {
        fs_log.info("File already exists in CFileAreaDevFactory::CreateWriteDev()");
        throw;
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to create file writer. File path: '%1'.", path);
    }
}

std::shared_ptr<io::area::area_write_dev_t> CFileAreaDevFactory::CreateWriteDevForHVIR(
    std::shared_ptr<io::area::IAreaDevToken> /*token*/, unsigned long* /*size*/) {
    throw exc::CRuntimeExc("CFileAreaDevFactory::CreateWriteDevForHVIR not implemented");
}

}  // namespace tarn
