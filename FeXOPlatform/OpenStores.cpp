#include <FeXOPlatform/OpenStores.hpp>

#include <sys/stat.h>

#include <map>
#include <mutex>
#include <utility>

namespace fexo {

namespace {

using Identity = std::pair<unsigned long long, unsigned long long>;

struct Registry {
    std::mutex mutex;
    std::map<Identity, int> marks; // identity → marks alive
};

Registry& registry()
{
    static Registry* instance = new Registry; // never destroyed: marks may outlive static destruction
    return *instance;
}

bool identityOf(const std::filesystem::path& path, Identity& identity)
{
    struct stat status { };
    if (::stat(path.c_str(), &status) != 0) return false;
    identity = {static_cast<unsigned long long>(status.st_dev), static_cast<unsigned long long>(status.st_ino)};
    return true;
}

} // namespace

OpenStores::Mark::Mark(const std::filesystem::path& databasePath)
{
    Identity identity;
    if (!identityOf(databasePath, identity)) return;
    auto& shared = registry();
    std::lock_guard lock(shared.mutex);
    ++shared.marks[identity];
    marked_ = true;
    device_ = identity.first;
    inode_ = identity.second;
}

OpenStores::Mark::~Mark()
{
    if (!marked_) return;
    auto& shared = registry();
    std::lock_guard lock(shared.mutex);
    const auto found = shared.marks.find({device_, inode_});
    if (found != shared.marks.end() && --found->second == 0) shared.marks.erase(found);
}

bool OpenStores::contains(const std::filesystem::path& databasePath)
{
    Identity identity;
    if (!identityOf(databasePath, identity)) return false;
    auto& shared = registry();
    std::lock_guard lock(shared.mutex);
    return shared.marks.contains(identity);
}

} // namespace fexo
