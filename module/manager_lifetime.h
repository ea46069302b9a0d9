// What the factory needs of the cache: making and destroying the manager. Declared here and defined
// beside the manager, so that module/ includes nothing of cache/.
#ifndef OX_MODULE_MANAGER_LIFETIME_H_
#define OX_MODULE_MANAGER_LIFETIME_H_

namespace ox::core::cache {

class FileCacheManager;

// A manager that has read its configuration and scanned its directory, or null. At most one may
// exist at a time; the caller serialises.
FileCacheManager* ConstructManager();

// Runs the complete destructor and frees the object.
void DestroyManager(FileCacheManager* manager);

}  // namespace ox::core::cache

#endif
