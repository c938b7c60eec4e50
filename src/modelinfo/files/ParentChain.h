#pragma once

#include <memory>
#include <string>

class ADMInfo;
class ADMModelInfoHandler;

namespace dmf::internal {

/// Stands for the calling thread building the tree of a handler, whose lock it holds meanwhile.
class BuildingTree {
public:
    explicit BuildingTree(const ADMModelInfoHandler& handler);
    ~BuildingTree();
    BuildingTree(const BuildingTree&) = delete;
    BuildingTree& operator=(const BuildingTree&) = delete;

private:
    const ADMModelInfoHandler& handler_;
};

/// The merged tree of the file that another one names as its parent; empty when it has none. Called by a thread that
/// holds the lock of the naming file's handler and stands for it with a BuildingTree.
///
/// Locks are taken from the child to its parent, so parents that go round in a circle would wait for each other for
/// ever, on one thread or on several that entered the circle at different files. The thread whose wait would close the
/// circle does not wait: its file goes without a parent, and the log tells.
[[nodiscard]] std::shared_ptr<ADMInfo> parentInfo(const std::string& parent, const std::string& table);

} // namespace dmf::internal
