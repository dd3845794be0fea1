#pragma once

#include <cstdint>
#include <string>

#include "tarn/export.h"

namespace tarn::blobfs {

/// Where a `BlobCreater` leaves its blob files and whom it tells. The embedding agent derives the class that takes each
/// finished file further. One thread at a time.
class TARN_API CBlobFsConnnection {
  public:
    /// `localTempFolder` is where blob files are written; it must exist. `targetTempFolder`, the receiver's folder for
    /// them, and `extra` are for derived classes: nothing here uses them.
    CBlobFsConnnection(std::string localTempFolder, std::string targetTempFolder, std::string extra);
    CBlobFsConnnection(const CBlobFsConnnection&) = delete;
    CBlobFsConnnection& operator=(const CBlobFsConnnection&) = delete;
    virtual ~CBlobFsConnnection();

    /// A blob file was written to the local folder and holds at least one command. `name` is its name there, without
    /// the folder; the file is the receiver of this call's from now on. What this throws, the creator's caller gets.
    virtual void OnBlobFileCreated(const std::string& name) = 0;

    /// "blobfs://".
    const std::string& GetPrefix() const noexcept { return prefix_; }
    const std::string& GetLocalTempFolder() const noexcept { return localTempFolder_; }
    const std::string& GetTargetTempFolder() const noexcept { return targetTempFolder_; }

    /// A name that this object has not given yet: the prefix without its last three characters (all of a shorter one)
    /// and a number that counts from 0, "blobfs0". Another object begins anew, so each needs a folder of its own.
    std::string NextBlobFile();

  protected:
    std::string localTempFolder_;
    std::string targetTempFolder_;
    std::string extra_;
    std::string prefix_;
    std::uint32_t blobCounter_ = 0;
};

}  // namespace tarn::blobfs
