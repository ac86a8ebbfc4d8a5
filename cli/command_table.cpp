// The commands of `pictavo`: one row each, with the words it takes and the usage it prints. A new
// option is one line here and its handling in the command's file.
#include "cli/cmd_actions.h"
#include "cli/cmd_convert.h"
#include "cli/commands.h"

namespace pictavo::cli {
namespace {

// ---- convert ----------------------------------------------------------------------------------

constexpr std::string_view kConvertForms[] = {
    "INPUT... --to EXT [--output DIR] [--actions FILE.act] [--config FILE.cfg] "
    "[--set Section/Key=VALUE]... [--gui] [--dry-run] [--check]"};

constexpr OptionSpec kConvertOptions[] = {
    {"--to", "EXT", "an extension",
     "target format (jpg, png, tif, pdf, svg, ...); default: the config's Dest_ext", ""},
    {"--output", "DIR", "a folder",
     "where results go (default: the config's Dest_path, else the pictures folder)", ""},
    {"--actions", "FILE.act", "a file", "an editing-actions file (.act) applied to every picture",
     ""},
    {"--config", "FILE.cfg", "a file",
     "a settings file (.cfg) to start from (default: the built-in defaults)", ""},
    {"--set", "Section/Key=VALUE", "Section/Key=VALUE",
     "one setting, e.g. --set JPG/Quality=90 (see 'pictavo settings show')", ""},
    {"--gui", "", "", "show the log window (needs a build with Qt 6 and a display)", ""},
    {"--dry-run", "", "", "print each source with its result path, flag collisions, write nothing",
     ""},
    {"--check", "", "", "only check that every file can be read (job kind 2)", ""},
};

// ---- settings ---------------------------------------------------------------------------------

constexpr std::string_view kSettingsVerbs[] = {"show", "write"};

constexpr std::string_view kSettingsForms[] = {
    "show [FILE.cfg] [--set Section/Key=VALUE]...",
    "write OUT.cfg [--from IN.cfg] [--mode N] [--set Section/Key=VALUE]..."};

constexpr OptionSpec kSettingsOptions[] = {
    {"--set", "Section/Key=VALUE", "Section/Key=VALUE",
     "a value as the settings file would hold it (any case); list\n"
     "items also need their count, e.g. --set SVG/Count=1 --set SVG/Font1_1=Arial.",
     ""},
    {"--from", "IN.cfg", "a file", "write: the settings file to start from", "write"},
    {"--mode", "N", "a number", "write: the mode of the settings file (1, 2 or 3)", "write"},
};

// ---- name -------------------------------------------------------------------------------------

constexpr std::string_view kNameForms[] = {
    "SOURCE... [--config FILE.cfg] [--set Section/Key=VALUE]... [--index N] [--page P] "
    "[--thumbnails]"};

constexpr OptionSpec kNameOptions[] = {
    {"--config", "FILE.cfg", "a file", "the job's settings file (default: the built-in defaults)",
     ""},
    {"--set", "Section/Key=VALUE", "Section/Key=VALUE",
     "a settings value, as in 'pictavo settings'", ""},
    {"--index", "N", "a number", "the running number of the first source (0 by default)", ""},
    {"--page", "P", "a number", "the page number for <page:#> (1 by default)", ""},
    {"--thumbnails", "", "", "also prints the five thumbnail paths of each source, indented", ""},
};

// ---- pages, actions, tools --------------------------------------------------------------------

constexpr std::string_view kPagesForms[] = {"LIST --count N"};
constexpr OptionSpec kPagesOptions[] = {
    {"--count", "N", "a number", "the number of pages to check against the list", ""},
};

constexpr std::string_view kActionsVerbs[] = {"show", "check"};
constexpr std::string_view kActionsForms[] = {"show FILE.act",
                                              "check FILE.act   (exit 1 when a line would fail)"};

constexpr std::string_view kToolsForms[] = {"[--json]"};
constexpr OptionSpec kToolsOptions[] = {
    {"--json", "", "", "the same report as JSON", ""},
};

constexpr CommandSpec kCommands[] = {
    {"convert",
     "convert files and folders: write the job files and run the engine",
     kConvertForms,
     "Converts files and folders (a folder gives its files that \"Main\"/\"File_mask\" accepts,\n"
     "its sub-folders too with --set Main/Read_subfolders=1) to the format EXT, and prints the\n"
     "engine's log. Sources are never changed.\n",
     kConvertOptions,
     "Exit status: 0 all files processed, 1 a file failed, 2 usage error.\n",
     {},
     CmdConvert},
    {"settings", "show or write a job's settings file (.cfg)", kSettingsForms,
     "show   prints one line Section/Key=value for every key of the settings file (as written\n"
     "       in mode 1), after the defaults, FILE.cfg and the --set values are read the way a\n"
     "       job reads them (clamps included). Booleans show as 1/0.\n"
     "write  writes the settings into OUT.cfg (UTF-16LE), keeping any other content OUT.cfg\n"
     "       already holds. The settings are the defaults, then IN.cfg, then the --set values.\n"
     "       --mode 1 adds the front end's own keys, --mode 3 adds Main/Name; default 2.\n",
     kSettingsOptions,
     "A settings file that cannot be read gives the defaults and a warning on stderr.\n",
     kSettingsVerbs, CmdSettings},
    {"name",
     "show the result path of each source file",
     kNameForms,
     "Prints the result path of each source file as a job would name it: the first source\n"
     "gets running number N (default 0), the next N+1, and so on. Sources are taken as\n"
     "absolute paths (relative ones against the current folder); only a source's header is\n"
     "read, when the template asks for its orientation, a TIFF tag or its EXIF date.\n",
     kNameOptions,
     "",
     {},
     CmdName},
    {"pages",
     "show which pages a page list selects",
     kPagesForms,
     "Prints the page numbers from 1 to N that the page list selects, separated by blanks.\n"
     "A list holds items separated by ',': a page (3), a range (2-5), from a page on (4-)\n"
     "or up to a page (-3). The scan stops at an empty item, so '1,,5' selects page 1 only.\n",
     kPagesOptions,
     "",
     {},
     CmdPages},
    {"actions",
     "show how an actions file (.act) is read; check exits 1 when a line would fail",
     kActionsForms,
     "",
     {},
     "",
     kActionsVerbs,
     CmdActions},
    {"tools",
     "show the tool folder and the formats it makes usable",
     kToolsForms,
     "Lists every tool the engine names in its tool folder (utl/ beside the executables):\n"
     "what it resolves to on this machine and the Debian package behind it, or what to\n"
     "install, or that no program on this platform can do the job; then the formats that\n"
     "are readable and writable through tools here.\n",
     kToolsOptions,
     "",
     {},
     CmdTools},
};

}  // namespace

std::span<const CommandSpec> Commands() {
  return kCommands;
}

}  // namespace pictavo::cli
