#include "tarn/upload/path_list.h"

#include <cstddef>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/numeric_cast.h"
#include "tarn/upload/upload_commands.h"

namespace tarn::upload {

std::vector<std::string> ReadPathList(io::binary_stream_tt& stream, std::uint32_t maximum) {
    const std::uint32_t count = stream.ReadU32();
    if (count > maximum) {
        throw exc::CRuntimeExc("List of [%1] paths is longer than the allowed [%2].", count, maximum);
    }
    std::vector<std::string> paths;
    std::size_t room = kMaxListedBytes;
    for (std::uint32_t index = 0; index < count; ++index) {
        std::string path = stream.ReadString(kMaxPathBytes);
        if (path.size() > room) {
            throw exc::CRuntimeExc("Paths of a list are longer than the allowed [%1] bytes together.", kMaxListedBytes);
        }
        room -= path.size();
        paths.push_back(std::move(path));
    }
    return paths;
}

void WritePathList(io::binary_stream_tt& stream, const std::vector<std::string>& paths) {
    stream.WriteU32(util::numeric_cast<std::uint32_t>(paths.size()));
    for (const std::string& path : paths) {
        stream.WriteString(path);
    }
}

}  // namespace tarn::upload
