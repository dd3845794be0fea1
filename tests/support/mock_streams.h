#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <gmock/gmock.h>

#include "tarn/file_rstream.h"
#include "tarn/file_wstream.h"

namespace tests {

/// Streams whose operations a test scripts.
class mock_file_rstream_t : public tarn::file_rstream_t {
  public:
    MOCK_METHOD(std::string, GetPath, (), (override));
    MOCK_METHOD(std::uint64_t, GetFileSize, (), (override));
    MOCK_METHOD(void, SeekTo, (std::uint64_t), (override));
    MOCK_METHOD(std::uint64_t, ReadExc, (void*, std::uint64_t), (override));
    MOCK_METHOD(void, FinishRead, (), (override));
};

class mock_file_wstream_t : public tarn::file_wstream_t {
  public:
    MOCK_METHOD(void, SeekTo, (std::uint64_t), (override));
    MOCK_METHOD(std::uint64_t, WriteExc, (const void*, std::uint64_t), (override));
    MOCK_METHOD(std::uint64_t, WriteZeroes, (std::uint64_t), (override));
    MOCK_METHOD(std::string, GetPath, (), (override));
    MOCK_METHOD(void, Flush, (), (override));
    MOCK_METHOD(void, Close, (std::shared_ptr<synch::completion_port_t>), (override));
};

}  // namespace tests
