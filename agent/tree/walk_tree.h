#pragma once

#include <string>

#include "agent/tree/tree_source.h"

namespace agent {

/// Is told what a walk finds, on the thread that walks. What a function throws ends the walk.
class tree_visitor_t {
  public:
    virtual ~tree_visitor_t();
    /// A file, link or special file; a directory before what is in it.
    virtual void OnEntry(const tree_entry_t& entry) = 0;
    /// A directory after everything in it.
    virtual void OnDirectoryLeft(const tree_entry_t& entry) = 0;
    /// An object that could not be examined or listed, and why; the walk goes on beside it.
    virtual void OnUnreadable(const std::string& name, const std::string& fault) = 0;
};

/// Walks `top` and everything below it, names of a directory in byte order, no link followed. An empty `top` is the
/// root itself. Memory grows with the depth of the tree and the size of the directories on the way down, not with the
/// tree. Throws when `top` itself cannot be examined; `posix::errno_exc_t` "Failed to get attributes of [%1]" with
/// ENOENT when it is not there.
void WalkTree(tree_source_t& source, const std::string& top, tree_visitor_t& visitor);

}  // namespace agent
