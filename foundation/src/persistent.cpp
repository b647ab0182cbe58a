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
    const ktArchive::Pass pass(archive);
    ktPersistent* archived = kt_archivePointer(archive, object);
    if (archive.isLoading()) {
        if (archived != nullptr) {
            kt_ArchivePass::current()->release(archived);
        }
        result = archived;
    }
}

bool ktPersistent::haveVisited(const ktPersistent* object, std::size_t extent)
{
    const kt_ArchivePass* pass = kt_ArchivePass::current();
    return pass != nullptr && pass->haveVisited(object, extent);
}

void ktPersistent::setVisited(const ktPersistent* object, std::size_t extent)
{
    if (kt_ArchivePass* pass = kt_ArchivePass::current()) {
        pass->setVisited(object, extent);
    }
}

unsigned char ktPersistent::archiveVersion(ktArchive& archive)
{
    unsigned char version = 0;
    archive.byte(version);
    return version;
}

void ktPersistent::mutating_() noexcept
{
    kt_ArchivePass::forgetEverywhere(this);
}
