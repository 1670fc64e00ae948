#include "app/AppDelegate.h"

#include <glib-unix.h>
#include <gtk/gtk.h>

#include <csignal>
#include <cstdio>

#include "app/CommandLineHelp.h"
#include "app/EditorWindowController.h"
#include "app/MainMenu.h"
#include "app/SignalConnect.h"
#include "app/UserDefaults.h"
#include "bridge/ItemFacts.h"
#include "contracts/GObjectPtr.h"
#include "contracts/GUniquePtr.h"
#include "recovery/PathForms.h"

#ifndef VORNA_VERSION
#define VORNA_VERSION "0"
#endif

namespace vorna::app {
namespace {

constexpr const char* kOpenPanelMessage =
    "Choose a folder of HTML pages, or one page — it opens in its folder.";

// The answer of the open panel's "Open Folder" button.
constexpr int kOpenFolderResponse = 1;

// The signals that end the host after the page stored its draft.
constexpr int kEndingSignals[] = {SIGTERM, SIGINT, SIGHUP};

}  // namespace

AppDelegate::AppDelegate(const std::vector<std::string>& arguments, SelfTest::Factory selfTests)
    : options_(LaunchOptions::scan(arguments)), selfTests_(std::move(selfTests)) {}

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
  // Answered before GTK starts, so they need no display.
  if (options_.showHelp || options_.showVersion) {
    std::string text =
        options_.showHelp ? CommandLineHelp::helpText() : CommandLineHelp::versionText();
    std::fwrite(text.data(), 1, text.size(), stdout);
    return std::fflush(stdout) == 0 ? 0 : 1;
  }
  if (std::optional<std::string> line = options_.ignoredLine()) {
    std::fputs(line->c_str(), stderr);
  }
  // The self-test modes run beside any editor that is open, never through it.
  auto flags = static_cast<GApplicationFlags>(G_APPLICATION_HANDLES_OPEN |
                                              (options_.selfTest() ? G_APPLICATION_NON_UNIQUE : 0));
  auto application =
      contracts::GObjectPtr<GtkApplication>::adopt(gtk_application_new(kApplicationId, flags));
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
          contracts::GText path(g_file_get_path(files[i]));
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
    contracts::GErrorPtr owned(error);
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
    auto file = contracts::GObjectPtr<GFile>::adopt(g_file_new_for_commandline_arg(path.c_str()));
    contracts::GText uri(g_file_get_uri(file.get()));
    uris.emplace_back(uri.get());
  }
  std::vector<char*> argv{const_cast<char*>(programPath)};
  for (std::string& uri : uris) {
    argv.push_back(uri.data());
  }
  argv.push_back(nullptr);

  std::vector<unsigned> signalSources;
  for (int signal : kEndingSignals) {
    using Handler = std::pair<AppDelegate*, int>;
    signalSources.push_back(g_unix_signal_add_full(
        G_PRIORITY_DEFAULT, signal,
        +[](gpointer data) -> gboolean {
          auto [self, received] = *static_cast<Handler*>(data);
          self->endOnSignal(received);
          return G_SOURCE_CONTINUE;
        },
        new Handler(this, signal), [](gpointer data) { delete static_cast<Handler*>(data); }));
  }
  int status = g_application_run(G_APPLICATION(application.get()),
                                 static_cast<int>(argv.size() - 1), argv.data());
  for (unsigned source : signalSources) {
    g_source_remove(source);
  }
  selfTest_.reset();
  controller_.reset();
  application_ = nullptr;
  return exitStatus_ != 0 ? exitStatus_ : status;
}

void AppDelegate::applicationDidFinishLaunching() {
  launched_ = true;
  if (options_.selfTest()) {
    startSelfTest();
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

void AppDelegate::startSelfTest() {
  // The smoke test loads the editor without a folder in a window of its own
  // kind; the scenarios run in a headless one.
  controller_ =
      std::make_unique<EditorWindowController>(options_.isSmoke, !options_.isSmoke, application_);
  auto end = [this](int code) { endSelfTest(code); };
  selfTest_ = selfTests_ ? selfTests_(*controller_, options_, end) : nullptr;
  if (!selfTest_) {
    std::fputs("Vorna: this program was built without its self-tests\n", stderr);
    end(2);
    return;
  }
  selfTest_->run();
}

void AppDelegate::endSelfTest(int code) {
  // Quitting the loop (rather than exiting on the spot) lets the window and
  // the web view's processes go down in order; the runner ignores whatever
  // the loop still delivers before it returns.
  exitStatus_ = code;
  g_application_quit(G_APPLICATION(application_));
}

void AppDelegate::endOnSignal(int signal) {
  // A second signal while the page is still asked ends the host at once.
  if (endingSignal_ != 0 || !controller_) {
    exitStatus_ = 128 + signal;
    g_application_quit(G_APPLICATION(application_));
    return;
  }
  endingSignal_ = signal;
  controller_->storePageDraft([this, signal] {
    exitStatus_ = 128 + signal;
    controller_->close(false);
    g_application_quit(G_APPLICATION(application_));
  });
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
  // GTK's chooser opens files or folders, never both; "Open Folder" takes the
  // selected folder, or the one being shown, while "Open" takes a page.
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  GtkWidget* dialog = gtk_file_chooser_dialog_new(
      kOpenPanelMessage, controller_->window(), GTK_FILE_CHOOSER_ACTION_OPEN, "Cancel",
      GTK_RESPONSE_CANCEL, "Open Folder", kOpenFolderResponse, "Open", GTK_RESPONSE_ACCEPT,
      nullptr);
  gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_ACCEPT);
  auto pages = contracts::GObjectPtr<GtkFileFilter>::adopt(gtk_file_filter_new());
  gtk_file_filter_set_name(pages.get(), "HTML pages");
  for (const char* suffix : {"html", "htm"}) {
    gtk_file_filter_add_suffix(pages.get(), suffix);
  }
  gtk_file_chooser_add_filter(GTK_FILE_CHOOSER(dialog), pages.get());
  gtk_window_set_modal(GTK_WINDOW(dialog), TRUE);
  connectSignal(
      dialog, "response",
      +[](GtkDialog* shown, int response, gpointer data) {
        auto* self = static_cast<AppDelegate*>(data);
        GtkFileChooser* chooser = GTK_FILE_CHOOSER(shown);
        auto file = contracts::GObjectPtr<GFile>::adopt(response == GTK_RESPONSE_ACCEPT ||
                                                                response == kOpenFolderResponse
                                                            ? gtk_file_chooser_get_file(chooser)
                                                            : nullptr);
        if (response == kOpenFolderResponse &&
            (!file || g_file_query_file_type(file.get(), G_FILE_QUERY_INFO_NONE, nullptr) !=
                          G_FILE_TYPE_DIRECTORY)) {
          file = contracts::GObjectPtr<GFile>::adopt(gtk_file_chooser_get_current_folder(chooser));
        }
        contracts::GText path(file ? g_file_get_path(file.get()) : nullptr);
        gtk_window_destroy(GTK_WINDOW(shown));
        if (!path || !self->controller_) {
          return;
        }
        PageTarget chosen = target(path.get());
        if (chosen.folder) {
          self->openTarget(chosen);
        }
      },
      this);
  G_GNUC_END_IGNORE_DEPRECATIONS
  gtk_window_present(GTK_WINDOW(dialog));
}

std::optional<std::string> AppDelegate::rememberedFolder() const {
  std::optional<std::string> path =
      UserDefaults(UserDefaults::standardPath()).string(UserDefaults::kLastFolderKey);
  if (!path ||
      !(bridge::kindOf(*path, storage::FileSystem::real()) == bridge::ItemKind::directory)) {
    return std::nullopt;
  }
  return path;
}

void AppDelegate::remember(const std::string& folder) {
  if (options_.selfTest()) {
    return;
  }
  UserDefaults(UserDefaults::standardPath())
      .setString(UserDefaults::kLastFolderKey, recovery::standardisedPath(folder));
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
         // Closing the last window ends the application, once the page has
         // stored its draft and the window its frame.
         if (self->controller_) {
           self->controller_->close(true);
         } else {
           g_application_quit(G_APPLICATION(self->application_));
         }
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
