#pragma once

#include <exception>

#include "mirrowen/export.h"
#include "mirrowen/synch/mutex.h"

namespace synch {

/// Collects the outcomes of operations that complete on other threads. Any thread may post; the one that waits for the
/// result asks. A stream with a synchronous close neither posts to it nor keeps it.
class MIRROWEN_API completion_port_t {
  public:
    /// Records the failure of one request; an empty pointer is ignored.
    void PostError(std::exception_ptr error);

    /// Throws the first recorded failure, unchanged, when there is one; each later call throws it again.
    void CheckForErrorsExc() const;

  private:
    mutable mutex_t mutex_;
    std::exception_ptr error_ GUARDED_BY(mutex_);  // the first; later ones mostly follow from it
};

}  // namespace synch
