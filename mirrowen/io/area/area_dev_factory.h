#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mirrowen/export.h"
#include "mirrowen/io/area/area_dev_token.h"
#include "mirrowen/io/area/area_read_dev.h"
#include "mirrowen/io/area/area_write_dev.h"

namespace io::area {

/// Turns tokens of its types into devices. Stateless or locked: any thread may call it. What a factory does not offer
/// throws.
class MIRROWEN_API IAreaDevFactory {
  public:
    virtual ~IAreaDevFactory();
    /// Appends the type words that it serves.
    virtual void EnumTokenTypes(std::vector<std::string>& types) = 0;
    /// Reads a token of the given type from the stream.
    virtual std::shared_ptr<IAreaDevToken> LoadToken(const std::string& type, binary_stream_tt& stream) const = 0;
    virtual std::shared_ptr<area_read_dev_t> CreateReadDev(std::shared_ptr<IAreaDevToken> token) const = 0;
    /// `size`: bytes that will come, may be null. `incremental`: write into what is there. `overwrite`: what is there
    /// may be replaced; otherwise `exc::CAlreadyExistsExc`.
    virtual std::shared_ptr<area_write_dev_t> CreateWriteDev(std::shared_ptr<IAreaDevToken> token, bool incremental,
                                                             unsigned long* size, bool overwrite) = 0;
    virtual std::shared_ptr<area_write_dev_t> CreateWriteDevForHVIR(std::shared_ptr<IAreaDevToken> token,
                                                                    unsigned long* size) = 0;
};

}  // namespace io::area
