#include <kt/persistent.h>

#include "archive_pass.h"

void ktPersistent::dispatchSerialize(ktArchive&) {}

void ktPersistent::reInit() {}

bool ktPersistent::loadSimple(ktArchive&)
{
    return false;
}

void ktPersistent::serializePointer(ktArchive& archive, ktPersistent* object, ktPersistent*& result)
{
    const ktRepBase* counted = nullptr;
    {
        const ktArchive::Pass pass(archive);
        ktPersistent* archived = kt_archivePointer(archive, object);
        if (archive.isStoring()) {
            return;
        }
        if (archived != nullptr) {
            kt_ArchivePass::current()->release(archived);
            counted = dynamic_cast<const ktRepBase*>(archived);
        }
        if (counted != nullptr) {
            kfInterlockedIncrement(counted->count_);
        }
        result = archived;
    }
    // Counted across the end of the pass only: the caller gets the object with the counts that others hold, maybe none.
    if (counted != nullptr) {
        kfInterlockedDecrement(counted->count_);
    }
}

bool ktPersistent::isLayerVisited(const ktPersistent* object, const void* layer, std::size_t extent)
{
    const kt_ArchivePass* pass = kt_ArchivePass::current();
    return pass != nullptr && pass->haveVisited(object, {layer, extent});
}

void ktPersistent::markLayer(const ktPersistent* object, const void* layer, std::size_t extent)
{
    if (kt_ArchivePass* pass = kt_ArchivePass::current()) {
        pass->setVisited(object, {layer, extent});
    }
}

bool ktPersistent::beginLayer(ktArchive& archive, const ktPersistent* object, const void* layer, std::size_t extent,
                              unsigned char& version)
{
    if (isLayerVisited(object, layer, extent)) {
        return false;
    }
    archive.byte(version);
    return true;
}

void ktPersistent::mutating_() noexcept
{
    kt_ArchivePass::forgetEverywhere(this);
}

void ktPersistent::assigned_() noexcept
{
    kt_ArchivePass::assigned(this);
}
