#include "app/CommandLineHelp.h"

namespace vorna::app {

std::string CommandLineHelp::helpText() {
  return R"(Usage: vorna [--open FOLDER-OR-PAGE]
  or:  vorna --smoke FOLDER
  or:  vorna --e2e FOLDER-OR-PAGE --scenario NAME
Edit a folder of HTML pages without ever losing a version. A page opens in its
folder; when Vorna already runs, the folder or page opens in that window.

Options:
  --open PATH      open this folder, or this page in its folder, at start;
                   without it the folder opened last time opens
  --smoke FOLDER   test the program on FOLDER, read-only, and print one JSON
                   report; exit 0 when every step ran, 1 otherwise
  --e2e PATH       run the scenario named by --scenario on this folder or page
                   with the real bridge; exit 0 once it reported, 2 when it
                   could not start or gave no report within 60 seconds
  --scenario NAME  the scenario to run: $VORNA_E2E_DIR/NAME.js
  --help           print this help and exit
  --version        print the version and exit
An option's value is the next argument, whatever it looks like. Other arguments
are not opened: they are ignored, with one line on standard error.

Environment:
  VORNA_APP_DIR        serve the editor from this folder (it holds index.html)
  VORNA_RECOVERY_ROOT  keep the recovery stores under this folder
  VORNA_DRY_OPEN       when 1, files are not handed to the desktop to open
  VORNA_E2E_DIR        the folder of the --e2e scenario scripts
  VORNA_E2E_SNAPSHOT   save a PNG of the editor to this file before --e2e ends
  VORNA_DEBUG          when set, name the editor folder served on standard error
  XDG_CONFIG_HOME      the settings folder (default ~/.config)
  XDG_DATA_HOME        the recovery store's and the trash's folder
                       (default ~/.local/share)

Files:
  $XDG_CONFIG_HOME/vorna/vorna.conf
                    the settings: the folder opened last, the window's size
  $XDG_DATA_HOME/Vorna/Recovery
                    the recovery store, one folder per workspace: drafts,
                    conflicts and every version that left a page; for a
                    workspace on another volume, .VornaRecovery/UID at the
                    root of that volume instead
  $XDG_DATA_HOME/Trash
                    where trashed files go (.Trash-UID at the root of
                    another volume)
  )" VORNA_INSTALLED_APP_RELATIVE R"(
                    the editor, beside the program's own folder; a program
                    in its build tree serves the tree's own editor
)";
}

std::string CommandLineHelp::versionText() {
  return std::string("vorna ") + VORNA_VERSION + "\n";
}

}  // namespace vorna::app
