#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <cstdlib>
#include <string>

// Starts GTK before any test. The web view's caches, stores and the user's
// settings go to a fresh folder, never the real home.
int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  char scratch[] = "/tmp/vorna-live-XXXXXX";
  if (mkdtemp(scratch) == nullptr) {
    return 2;
  }
  for (const char* name : {"XDG_CACHE_HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME"}) {
    std::string folder = std::string(scratch) + "/" + name;
    setenv(name, folder.c_str(), 1);
  }
  gtk_init();
  int status = RUN_ALL_TESTS();
  std::string remove = std::string("rm -rf '") + scratch + "'";
  return status == 0 && std::system(remove.c_str()) == 0 ? 0 : status;
}
