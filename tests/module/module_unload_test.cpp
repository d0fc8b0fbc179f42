// A host may unload the module while threads that used it live on. Those
// threads end later, and whatever the module left to run at their end must
// not run in a library that is gone. The test loads the module the way a
// host does, makes and frees a JSON value on a worker thread (which sets up
// that thread's node pool), unloads the module while the worker waits, and
// only then lets the worker end. A crash at the worker's end fails the
// test program. It does so three times, since a host may load the module
// again after unloading it.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "Host.h"
#include "Platform.h"
#include "Zentor.h"

namespace {

// One step a thread waits for.
class Signal {
 public:
  void Give() {
    std::lock_guard<std::mutex> lock(fMutex);
    fGiven = true;
    fChanged.notify_all();
  }
  void Wait() {
    std::unique_lock<std::mutex> lock(fMutex);
    fChanged.wait(lock, [&] { return fGiven; });
  }

 private:
  std::mutex fMutex;
  std::condition_variable fChanged;
  bool fGiven = false;
};

TEST(ModuleUnload, ThreadsThatUsedTheModuleEndAfterItIsUnloaded) {
  const std::string path = zhost::Host::ExecutableDir() + "/libzentor_json" + zhost::kModuleSuffix;
  for (int load = 0; load < 3; ++load) {
    std::string error;
    zhost::LibraryHandle library = zhost::OpenLibrary(path, error);
    ASSERT_NE(library, nullptr) << error;
    auto factory = reinterpret_cast<Zentor::ZentorTypeFactory>(
        zhost::LibrarySymbol(library, "zentor_module_CreateJSONObj"));
    ASSERT_NE(factory, nullptr);

    Signal used, unloaded;
    bool made = false;
    std::thread worker([&] {
      // A JSON value holds a node from the calling thread's pool.
      Zentor::IUserDefinedType* value = factory(Zentor::kTypeFirstUserDefined, nullptr);
      made = value != nullptr;
      if (value) value->Release();
      used.Give();
      unloaded.Wait();
    });
    used.Wait();
    zhost::CloseLibrary(library);
    unloaded.Give();
    worker.join();
    EXPECT_TRUE(made) << "load " << load;
  }
}

}  // namespace
