// Shared objects with classes of their own come and go while other threads store and load.

#include "threads/each_thread.h"

#ifdef KT_TEST_PLUGIN

#include <dlfcn.h>

namespace {

using threads::onEachThread;

/// Loads the plug-in, lets it use its classes, and unloads it. Returns whether all of that went well.
bool visit();
bool isLoaded();
/// An archive of objects of several classes of the library.
std::string storedTool();

TEST(RegistryThreads, ToolsAreStoredAndLoadedWhileAPlugInIsLoadedAndUnloaded)
{
    ASSERT_TRUE(visit());
    ASSERT_FALSE(isLoaded()) << "what stays in memory shows nothing";
    const std::string expected = storedTool();
    std::atomic<bool> isOver{false};
    std::atomic<int> wrong{0};
    onEachThread([&](int thread) {
        if (thread == 0) {
            for (int round = 0; round < 300; ++round) {
                wrong += visit() && !isLoaded() ? 0 : 1;
            }
            isOver = true;
        }
        while (!isOver) {
            std::istringstream in(expected);
            ktArchive loading(static_cast<std::istream&>(in));
            ktClassifierTool tool;
            try {
                loading || tool;
                wrong += storedTool() == expected ? 0 : 1;
            } catch (const ktException&) {
                ++wrong;
            }
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(kt_Instantiator::find("Visitor63"), nullptr);
}

bool visit()
{
    void* const plugin = dlopen(KT_TEST_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    if (plugin == nullptr) {
        return false;
    }
    const auto works = reinterpret_cast<bool (*)()>(dlsym(plugin, "ktPluginWorks"));
    const bool worked = works != nullptr && works();
    return dlclose(plugin) == 0 && worked;
}

bool isLoaded()
{
    void* const plugin = dlopen(KT_TEST_PLUGIN, RTLD_NOW | RTLD_NOLOAD);
    if (plugin != nullptr) {
        dlclose(plugin);
    }
    return plugin != nullptr;
}

std::string storedTool()
{
    ktClassifierDataProviderMemory data;
    for (long i = 0; i < 4; ++i) {
        data.addData(new ktFeaturePattern({static_cast<double>(i)}, {}), i % 2);
    }
    ktClassifierTool tool;
    tool.train(data, ktClassifierTrainParamsKNN(1));
    return kt_test::store(tool);
}

}  // namespace

#endif
