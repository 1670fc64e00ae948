#include "app/AppDelegate.h"

#include <gtk/gtk.h>

#include <cstdio>

#include "app/E2ERunner.h"
#include "app/EditorWindowController.h"
#include "app/FilePaths.h"
#include "app/GObjectPtr.h"
#include "app/GUniquePtr.h"
#include "app/MainMenu.h"
#include "app/SignalConnect.h"
#include "app/SmokeRunner.h"
#include "app/UserDefaults.h"

#ifndef VORNA_VERSION
#define VORNA_VERSION "0"
#endif

namespace vorna::app {
namespace {

constexpr const char* kOpenPanelMessage =
    "Choose a folder of HTML pages, or one page — it opens in its folder.";

// The folder chooser of "Open…", owned by its response and released there.
struct OpenPanel {
  AppDelegate* delegate;
  GObjectPtr<GtkFileChooserNative> chooser;
};

}  // namespace

AppDelegate::AppDelegate(const std::vector<std::string>& arguments)
    : options_(LaunchOptions::scan(arguments)) {}

AppDelegate::~AppDelegate() = default;

PageTarget AppDelegate::firstTarget(const PageTarget& pending, const PageTarget& requested,
                                    const std::optional<std::string>& remembered) {
  if (pending.folder) {
    return pending;
  }
  if (requested.folder) {
    return requested;
  }
  if (remembered) {
    return {remembered, std::nullopt};
  }
  return {};
}

int AppDelegate::run(const char* programPath) {
  if (std::optional<std::string> line = options_.ignoredLine()) {
    std::fputs(line->c_str(), stderr);
  }
  // The self-test modes run beside any editor that is open, never through it.
  auto flags = static_cast<GApplicationFlags>(G_APPLICATION_HANDLES_OPEN |
                                              (options_.selfTest() ? G_APPLICATION_NON_UNIQUE : 0));
  auto application = GObjectPtr<GtkApplication>::adopt(gtk_application_new(kApplicationId, flags));
  application_ = application.get();

  connectSignal(
      application.get(), "activate",
      +[](GApplication*, gpointer data) {
        auto* self = static_cast<AppDelegate*>(data);
        if (!self->launched_) {
          self->applicationDidFinishLaunching();
        } else if (self->controller_) {
          self->controller_->present();
        }
      },
      this);
  connectSignal(
      application.get(), "open",
      +[](GApplication*, GFile** files, int count, char*, gpointer data) {
        auto* self = static_cast<AppDelegate*>(data);
        std::vector<std::string> paths;
        for (int i = 0; i < count; ++i) {
          GText path(g_file_get_path(files[i]));
          if (path) {
            paths.emplace_back(path.get());
          }
        }
        self->applicationOpen(paths);
        if (!self->launched_) {
          self->applicationDidFinishLaunching();
        }
      },
      this);

  GError* error = nullptr;
  if (!g_application_register(G_APPLICATION(application.get()), nullptr, &error)) {
    GErrorPtr owned(error);
    std::fprintf(stderr, "Vorna: could not start: %s\n", owned->message);
    return 1;
  }

  // What reaches "open": when an editor already runs, the --open target, so
  // that it opens there (the desktop's "Open with" passes it with --open too).
  // As URIs they can never be mistaken for options.
  std::vector<std::string> paths;
  bool remote = g_application_get_is_remote(G_APPLICATION(application.get())) != FALSE;
  if (!options_.selfTest() && remote && options_.requestedFolder) {
    paths.push_back(options_.requestedPage
                        ? *options_.requestedFolder + "/" + *options_.requestedPage
                        : *options_.requestedFolder);
  }
  std::vector<std::string> uris;
  for (const std::string& path : paths) {
    auto file = GObjectPtr<GFile>::adopt(g_file_new_for_commandline_arg(path.c_str()));
    GText uri(g_file_get_uri(file.get()));
    uris.emplace_back(uri.get());
  }
  std::vector<char*> argv{const_cast<char*>(programPath)};
  for (std::string& uri : uris) {
    argv.push_back(uri.data());
  }
  argv.push_back(nullptr);

  int status = g_application_run(G_APPLICATION(application.get()),
                                 static_cast<int>(argv.size() - 1), argv.data());
  smoke_.reset();
  e2e_.reset();
  controller_.reset();
  application_ = nullptr;
  return exitStatus_ != 0 ? exitStatus_ : status;
}

void AppDelegate::applicationDidFinishLaunching() {
  launched_ = true;
  if (options_.isSmoke) {
    startSmoke();
    return;
  }
  if (options_.isE2E) {
    startEndToEnd();
    return;
  }
  MainMenu::install(application_, kAppName);
  installActions();
  controller_ = std::make_unique<EditorWindowController>(false, false, application_);
  controller_->shellMessages().onOpenFolder = [this] { openFolder(); };
  controller_->present();

  PageTarget first =
      firstTarget(pending_, {options_.requestedFolder, options_.requestedPage}, rememberedFolder());
  pending_ = {};
  if (first.folder) {
    openTarget(first);
  } else {
    controller_->load(std::nullopt, std::nullopt);
  }
}

void AppDelegate::startSmoke() {
  controller_ = std::make_unique<EditorWindowController>(true, false, application_);
  smoke_ = std::make_unique<SmokeRunner>(
      *controller_, *options_.smokeFolder,
      SelfTestOutput::standard([this](int code) { endSelfTest(code); }));
  smoke_->run();
}

void AppDelegate::startEndToEnd() {
  controller_ = std::make_unique<EditorWindowController>(false, true, application_);
  E2ERunner::Settings settings;
  settings.snapshotPath = E2ERunner::processEnvironment(E2ERunner::kSnapshotVariable);
  if (settings.snapshotPath && settings.snapshotPath->empty()) {
    settings.snapshotPath.reset();
  }
  e2e_ = std::make_unique<E2ERunner>(
      *controller_, *options_.e2eFolder, options_.e2ePage, *options_.e2eScenario,
      SelfTestOutput::standard([this](int code) { endSelfTest(code); }), std::move(settings));
  e2e_->run();
}

void AppDelegate::endSelfTest(int code) {
  // Quitting the loop (rather than exiting on the spot) lets the window and
  // the web view's processes go down in order; the runner ignores whatever
  // the loop still delivers before it returns.
  exitStatus_ = code;
  g_application_quit(G_APPLICATION(application_));
}

void AppDelegate::applicationOpen(const std::vector<std::string>& paths) {
  if (options_.selfTest()) {
    return;
  }
  std::optional<PageTarget> found = openRequestTarget(paths);
  if (!found || !found->folder) {
    return;
  }
  if (controller_) {
    openTarget(*found);
    controller_->present();
  } else {
    pending_ = *found;
  }
}

void AppDelegate::openTarget(const PageTarget& target) {
  controller_->openFolder(*target.folder, target.page);
  remember(*target.folder);
}

void AppDelegate::openFolder() {
  if (!controller_) {
    return;
  }
  // GTK's chooser picks folders or files, never both in one dialog; the
  // folder is what the editor opens (a page reaches it by "Open with").
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  auto* panel =
      new OpenPanel{this, GObjectPtr<GtkFileChooserNative>::adopt(gtk_file_chooser_native_new(
                              kOpenPanelMessage, controller_->window(),
                              GTK_FILE_CHOOSER_ACTION_SELECT_FOLDER, "Open", "Cancel"))};
  gtk_native_dialog_set_modal(GTK_NATIVE_DIALOG(panel->chooser.get()), TRUE);
  connectSignal(
      panel->chooser.get(), "response",
      +[](GtkNativeDialog* dialog, int response, gpointer data) {
        std::unique_ptr<OpenPanel> owned(static_cast<OpenPanel*>(data));
        if (response != GTK_RESPONSE_ACCEPT) {
          return;
        }
        auto file = GObjectPtr<GFile>::adopt(gtk_file_chooser_get_file(GTK_FILE_CHOOSER(dialog)));
        GText path(file ? g_file_get_path(file.get()) : nullptr);
        if (!path) {
          return;
        }
        PageTarget chosen = target(path.get());
        if (chosen.folder && owned->delegate->controller_) {
          owned->delegate->openTarget(chosen);
        }
      },
      panel);
  gtk_native_dialog_show(GTK_NATIVE_DIALOG(panel->chooser.get()));
  G_GNUC_END_IGNORE_DEPRECATIONS
}

std::optional<std::string> AppDelegate::rememberedFolder() const {
  std::optional<std::string> path =
      UserDefaults(UserDefaults::standardPath()).string(UserDefaults::kLastFolderKey);
  if (!path || !isDirectory(*path)) {
    return std::nullopt;
  }
  return path;
}

void AppDelegate::remember(const std::string& folder) {
  if (options_.selfTest()) {
    return;
  }
  UserDefaults(UserDefaults::standardPath())
      .setString(UserDefaults::kLastFolderKey, standardizedPath(folder));
}

void AppDelegate::installActions() {
  static const GActionEntry kActions[] = {
      {"about",
       [](GSimpleAction*, GVariant*, gpointer data) {
         auto* self = static_cast<AppDelegate*>(data);
         GtkWidget* about = gtk_about_dialog_new();
         gtk_about_dialog_set_program_name(GTK_ABOUT_DIALOG(about), kAppName);
         gtk_about_dialog_set_version(GTK_ABOUT_DIALOG(about), VORNA_VERSION);
         gtk_about_dialog_set_comments(
             GTK_ABOUT_DIALOG(about), "Edit a folder of HTML pages without ever losing a version.");
         gtk_about_dialog_set_logo_icon_name(GTK_ABOUT_DIALOG(about), kApplicationId);
         if (self->controller_) {
           gtk_window_set_transient_for(GTK_WINDOW(about), self->controller_->window());
         }
         gtk_window_set_modal(GTK_WINDOW(about), TRUE);
         gtk_window_present(GTK_WINDOW(about));
       },
       nullptr,
       nullptr,
       nullptr,
       {}},
      {"quit",
       [](GSimpleAction*, GVariant*, gpointer data) {
         auto* self = static_cast<AppDelegate*>(data);
         // Closing (not just quitting) lets the window save its frame first.
         if (self->controller_ && self->controller_->window() != nullptr) {
           gtk_window_close(self->controller_->window());
         }
         g_application_quit(G_APPLICATION(self->application_));
       },
       nullptr,
       nullptr,
       nullptr,
       {}},
      {"open",
       [](GSimpleAction*, GVariant*, gpointer data) {
         static_cast<AppDelegate*>(data)->openFolder();
       },
       nullptr,
       nullptr,
       nullptr,
       {}},
      {"bring-all-to-front",
       [](GSimpleAction*, GVariant*, gpointer data) {
         auto* self = static_cast<AppDelegate*>(data);
         if (self->controller_) {
           self->controller_->present();
         }
       },
       nullptr,
       nullptr,
       nullptr,
       {}},
  };
  g_action_map_add_action_entries(G_ACTION_MAP(application_), kActions, G_N_ELEMENTS(kActions),
                                  this);
}

}  // namespace vorna::app
