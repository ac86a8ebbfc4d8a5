// TMainSettings: every setting of one conversion job.
//
// One object per job: filled by SetDefault and read_ini_settings at the start, then handed to
// the executor, the workers and every stage, which only read it. Const members are safe to call
// from several workers at once. Fields are grouped by the settings-file section that holds them
// and named after its keys ("JPG"/"Quality" is jpg.quality). Defaults are the member initialisers
// below; SetDefault adds those that depend on the user's folders. The key spellings, the order in
// which the file is read and written, and the registry value names live in settings_keys.h.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/registry_store.h"
#include "platform/status.h"
#include "settings/image_header_probe.h"
#include "settings/mem_ini_file.h"

namespace pictavo::settings {

// A colour channel: 0..255 in one byte. Readers keep the low 8 bits of larger numbers.
using ColorChannel = uint8_t;

// An integer option mirrored as mutually exclusive flags, one per value 1..N. The rest of the
// engine tests the flags; the integer is recomputed from them before writing.
template <int N>
class OneOfN {
 public:
  // True when the flag of `value` (1..N) is set.
  bool Is(int value) const { return value >= 1 && value <= N && flags_[value - 1]; }
  // Sets the flag of `value` alone (no flag when out of range).
  void Select(int value) {
    flags_.fill(false);
    if (value >= 1 && value <= N) flags_[value - 1] = true;
  }
  void SetFlag(int value, bool on) {
    if (value >= 1 && value <= N) flags_[value - 1] = on;
  }
  // The value the flags stand for: the last set flag wins; 1 when none is set.
  int Value() const {
    int v = -1;
    for (int i = 0; i < N; ++i)
      if (flags_[i]) v = i + 1;
    return v < 0 ? 1 : v;
  }

 private:
  std::array<bool, N> flags_{};
};

// The group of thumbnail keys that older consumers read ("Thumbnails" section only).
struct ThumbnailGroup {
  bool create_thumbnails = false;
  std::string folder;  // pictures folder
  int width = 100;
  int height = 100;
  int resize_type = 0;
  bool do_not_resize_if_less = false;
  std::string mask = "<filename>_thumb";
  int counter = 0;
  std::string ext = "jpg";
};

// One entry of the thumbnail-set array: set 0 is "Thumbnails", set n is "Thumbnails_<n>".
struct ThumbnailSet : ThumbnailGroup {
  int jpg_q = 80;
  bool first_p = false;
};

struct CustomPlace {
  std::string name, folder, subfolder;
  int option = 2;
};

struct Place {
  int type = 0;
  std::string folder, subfolder;
  int option = 2;
  int custom_ind = 2;
};

struct SvgFontReplacement {
  std::string font1;  // the font to replace
  std::string font2;  // its replacement
};

struct PlotterPen {
  int num = 0;
  std::string width = "0.4";
  std::string color = "rgb(0,0,0)";
};

// What create_dest_filename needs besides the settings.
struct DestRequest {
  std::string source_path;
  int index = 0;            // the file's running number in the job, 0 for the first
  std::string source_root;  // folder the file was collected from (for the saving step's records)
  int page = 0;             // page index, 0 for the first page
  std::string subfolder;    // the job's optional subfolder under the source folder
  // Reads the source's header for "<orientation>", "<tif_tag:n>" and "<exif_date_time>"; must
  // outlive the call. None: those tokens know nothing of the file.
  const ImageHeaderProbe* probe = nullptr;
};

struct DestNames {
  std::string result;
  std::array<std::string, 5> thumbnails;  // one path per thumbnail set
};

// Inputs of ParseFileMask beyond the base name, template and counter.
struct MaskSource {
  std::string source_path;
  int height = 0;  // image size, 0 when unknown
  int width = 0;
  int page = 0;  // page index, 0 for the first page
  // The moment that "<time:>" and "<date:>" show, in seconds since the epoch; now when unset.
  std::optional<int64_t> now;
  const ImageHeaderProbe* probe = nullptr;  // as in DestRequest
};

class TMainSettings {
 public:
  static constexpr int kThumbnailSetCount = 5;
  static constexpr std::string_view kRegistryKey = "Software\\Velmora\\Pictavo7";

  struct Main {
    std::string s_file, o_file;
    int default_local_option = 1;
    std::string default_local_subfolder, default_local_folder;
    std::string default_dropbox_folder, default_boxcom_folder, default_skydrive_folder,
        default_gdrive_folder;
    bool image_preview = true;
    bool image_preview2 = false;
    bool show_quit_dialog = true;
    bool show_clearlist_dialog = true;
    bool show_file_options = false;
    bool show_modify_filename = false;
    bool show_hidden = true;
    int icons_list_details = 2;
    std::string language = "english";
    std::string dialog_folder;  // pictures folder
    std::string default_script;
    bool keep_actions = false;
    std::string source_folder;  // pictures folder
    std::string init_folder;    // pictures folder
    std::string current_folder;
    int ext_index = 0;
    std::string source_ext;
    std::string file_mask = "*";
    std::string dest_path;  // pictures folder
    bool same_as_source = false;
    std::string dest_ext = "JPG";
    std::string use_file_list;
    std::string photoshop_effects;
    bool show_transp = true;
    ColorChannel transp_red = 255, transp_green = 255, transp_blue = 255;
    int cpu_priority = 2;
    bool read_subfolders = false;
    std::string temp_folder;  // application-data folder + "Pictavo7/temp/"
    bool check_files = false;
  } main;

  struct Window {
    std::array<std::string, 6> extension = {"JPG", "PNG", "TIF", "GIF", "BMP", "AVIF"};
    int left = 10, top = 10, height = 600, width = 800;
    bool max = false;
    std::string adv_folder;  // pictures folder
    bool adv_sub_folders = true;
    std::string adv_ext;
    bool size_less = false, size_more = false;
    int less_than = 1, more_than = 100;
    int less_bytes = 2, more_bytes = 1;
    int step1_splitter1 = 210, step1_splitter2 = -1, step1_splitter3 = 210;
    int step2_splitter1 = 401;
  } window;

  struct View {
    int left = 60, top = 60, height = 500, width = 700;
  } view;

  struct MultipageSettings {
    int loading_option = 0, actions_option = 0;
    std::string loading_pages, apply_actions_pages;
  } multipage_settings;

  struct SkipBlankSettings {
    bool skip_blank = false;
    int skip_blank_accuracy = 80;
  } skip_blank_settings;

  struct Multipage {
    int option = 1;  // 1..4, mirrored by option_flags
    int merge_to_one = -1;
    int group = 2;
    OneOfN<4> option_flags;
  } multipage;

  struct Colors {
    int option = 1;  // 1..3, mirrored by option_flags
    int bits_per_sample = 8, samples_per_pixel = 3;
    OneOfN<3> option_flags;
  } colors;

  struct Dpi {
    int option = 1;  // 1..2, mirrored by option_flags
    int x_dpi = 300, y_dpi = 300;
    OneOfN<2> option_flags;
  } dpi;

  struct FileName {
    std::string mask = "<filename>";
    std::string mask_prefix, mask_suffix;
    int start_number = 1;
    bool replace = false;
    std::string substring_1, substring_2;
    bool lower_case_ext = true;
    int case_option = 1;  // 1 upper case, 2 lower case; mirrored by case_option_flags
    bool change_case = false;
    OneOfN<2> case_option_flags;
  } file_name;

  struct Save {
    bool copy_alpha = true, copy_iptc = true, copy_exif = true;
    bool set_exif_title = false, set_exif_subject = false, set_exif_keywords = false,
         set_exif_comment = false, set_exif_author = false, set_exif_copyright = false;
    std::string exif_title, exif_subject, exif_keywords, exif_comment, exif_author, exif_copyright;
    int icc_option = 1;
    std::string icc_file;
    bool create_copies = false;
    int number_of_copies = 1;
    std::string copy_mask = "<filename>";
    int copy_counter = 0;
    int overwrite = 1;
    int same_date = 0;
    bool save_path = false;
    int save_path_option = 1;
    bool delete_files = false, delete_folders = false;
    bool move_files = false;
    std::string move_files_folder;  // pictures folder
    bool move_unprocessed_files = false;
    std::string move_unprocessed_files_folder;  // pictures folder
  } save;

  // Both filled from the "Thumbnails" keys, deliberately, so older consumers and the array agree.
  ThumbnailGroup thumbnails;
  std::array<ThumbnailSet, kThumbnailSetCount> thumbnail_sets;
  int thumbnail_set_count = kThumbnailSetCount;  // fixed whatever the file holds

  struct ContextMenu {
    bool on = true;
  } context_menu;

  // Reading options of input formats.
  struct PdfEpsPs {
    int res = 300, color_res = 0;
    bool aa = true, alpha = false, extract_images = false;
    std::string font_path;
  } pdf_eps_ps;
  struct RawRead {
    int white_balance = 3, brightness = 100, interpolation = 0;
    bool half_size = false, auto_color = true, denoise = true, bits16 = false, jpeg = false;
  } raw_read;
  struct RawBmp {
    int width = 1, height = 1, header_size = 0, row_align = 8, bits_per_channel = 8, order = 1;
  } raw_bmp;
  struct Vector {
    int zoom = 100;
  } vector;
  struct SwfRead {
    bool extract_images = false;
  } swf_read;
  struct DxfDwgRead {
    bool gray = false;
    int layout = 1, units = -1;
    bool extract_layers = false;
  } dxf_dwg_read;
  struct StlRead {
    int x = 0, y = 0, z = 0;
    bool milti_frames = false;
    int frames = 5;
    bool change_x = true, change_y = true, change_z = true;
    int x_from = 0, x_to = 360, y_from = 0, y_to = 360, z_from = 0, z_to = 360;
  } stl_read;
  struct SvgRead {
    int size = 1;
  } svg_read;
  struct Psd {
    bool load_layers = false;
  } psd;
  struct Emf {
    bool rclbounds = false, xps = true;
  } emf;
  struct Level {
    int level = 1;
  } scn, svs, sid;
  struct Fit {
    int option = 0;
  } fit;
  struct Txt {
    int paper = 0, font_size = 10, landscape = 0;
  } txt;
  struct ExrHdr {
    bool true_color = true;
  } exr_hdr;

  // Writing options of output formats.
  struct Jpg {
    bool use_quality = false;
    int quality = 80, size = 50;
    bool progressive = false;
    int color_space = 0;
    bool save_jpeg = false;
  } jpg;
  struct Png {
    bool transparent = false, auto_transp = true;
    ColorChannel color_red = 255, color_green = 255, color_blue = 255;
    bool interlaced = false;
    int compression = 9;
    bool animated = false;
    int delay = 1;
    bool optimized = false;
  } png;
  struct Gif {
    bool transparent = false, auto_transp = true;
    ColorChannel color_red = 255, color_green = 255, color_blue = 255;
    bool interlaced = false;
    int delay_time = 1;
    bool loop = true;
  } gif;
  struct Tif {
    int compression = 7;
    bool save_in_cmyk = false;
    int jpg_quality = 80;
    bool save_tiff = false;
  } tif;
  struct Compression {
    bool compression = false;
  } bmp, pcx, tga;
  struct Ico {
    bool create_multi_size = true, p256 = true, p128 = true, p64 = true, p48 = true, p32 = true,
         p24 = true, p16 = true;
  } ico;
  struct Swf {
    int quality = 85;
    bool animated = true;
    int frame_rate = 1;
  } swf;
  // "SVG": the writer's options and the font-replacement list.
  struct Svg {
    bool raster = false, raster_lossless = false;
    int quality = 80;
    bool compressed = false, linked_images = false;
    std::string stroke_width = "1";
    bool set_stroke_width = false;
    ColorChannel color_red = 255, color_green = 255, color_blue = 255;
    bool set_color = false, replace_fonts = false;
    std::vector<SvgFontReplacement> fonts;
  } svg;
  // "VEC" and "Vec" are one section: vectorising options and the DXF/DWG reading units.
  struct Vec {
    int dxf_dwg_units = 1;
    int ras2vec_option = 2, ignore_raster = 0, ras2vec_precision = 90;
    bool rasterize_vector = false;
  } vec;
  // "PLT": the writer's options and the pen list.
  struct Plt {
    bool apply_pens_settings = false, optimized = false, remove_dup = false;
    int rotate = 0, pw = -1;
    bool save_size = true;
    std::vector<PlotterPen> pens;
  } plt;
  struct Gbr {
    bool raster = false;
    int type = 0;
  } gbr;
  struct Quality {
    int quality = 80;
  } jp2, avif_write, bpg_write, jxr_write;
  struct WebpWrite {
    int quality = 80, delay = 1;
    bool lossless = false;
  } webp_write;
  struct ShpWrite {
    int prj = -3857;
  } shp_write;
  // "PDF_Write" and "PDF_write" are one section.
  struct PdfWrite {
    int compression = 6, paper = 12, orientation = 0, jpg_quality = 85;
    bool save_in_cmyk = false, default_icc = true, the_icc = false;
    std::string icc;
    bool set_user_password = false, set_owner_password = false;
    std::string user_password, owner_password;
    bool allow_printing = false, allow_editing = false, allow_copying = false, create_pdf_a = false,
         create_searchable_pdf = false;
    std::string searchable_pdf_lang = "eng";
    bool create_linearized_pdf = false;
    int rotate_pdf = -1;
    bool curves_pdf = false;
    int image_res_pdf = -1;
  } pdf_write;
  struct AiWrite {
    int compression = 6, paper = 12, jpg_quality = 85;
    bool save_in_cmyk = false, default_icc = true, the_icc = false;
    std::string icc;
    bool create_preview = false;
    int ver = 3;
  } ai_write;
  struct EpsWrite {
    bool save_in_cmyk = false, create_preview = false;
  } eps_write;
  struct CadWrite {
    int version = 5, text = 1, spline = 1;
  } dxf_write, dwg_write;
  struct PclWrite {
    int paper = 12, position = 3, monochrome = 2, pcl3_x = -36, pcl3_y = 180, pcl4_x = -180,
        pcl4_y = 0;
  } pcl_write;
  // The job's resource limits: time-outs in seconds for each kind of tool (0 = none), the
  // largest picture in megapixels and in MB of pixels, the most an archive may unpack to in MB
  // (0 = the engine's default for these three).
  struct Limits {
    int tool_timeout = 300, render_timeout = 600, office_timeout = 1200, ocr_timeout = 1800;
    int max_megapixels = 0, max_memory_mb = 0, max_unpacked_mb = 0;
  } limits;

  // Lists of numbered keys.
  std::vector<CustomPlace> custom_places;
  std::vector<Place> places;

  // Puts every field to its default; folders come from the user's special folders.
  void SetDefault();

  // Reads the settings file over the current values (call SetDefault first). Never fails: a
  // missing file or key, or a value that is not a number, keeps the current value. Returns
  // why the file could not be read, for callers that want to say so; the fields are valid
  // either way.
  Status read_ini_settings(const std::string& file);
  // The same over an ini file already in memory.
  void read_ini_settings(const MemIniFile& ini);

  // Writes the settings into the file, keeping what it already holds, in one piece as
  // UTF-16LE. Mode 1 adds the front end's own keys and place lists; mode 3 adds "Main"/"Name".
  // The one-of-N options are first recomputed from their flags. Nothing is written, and the
  // error says why, when a text value holds a line break (a file cannot hold one), or when
  // the file exists but cannot be read (a folder, a device, too large), since rewriting it
  // would lose what it holds.
  Status write_ini_settings(const std::string& file, int mode);
  // The same into an ini file in memory; a value holding a line break is left out there and
  // the error names its key (the first of them).
  Status write_ini_settings(MemIniFile& ini, int mode);

  // The same fields in the per-user store (key kRegistryKey). Reading never fails; a missing
  // key reads nothing. Writing to the user's store loads it, writes every value and saves it.
  void read_reg_settings(const platform::RegistryStore& store);
  void read_reg_settings();
  void write_reg_settings(platform::RegistryStore& store);
  Status write_reg_settings();

  // Clamps of the settings reader, in order, then the one-of-N flags.
  void ApplyReadClamps();
  // Clamps the four one-of-N options into range and selects their flags.
  void ClampOptionsAndSetFlags();
  // Recomputes the four one-of-N options from their flags (last set flag wins, 1 when none).
  void OptionsFromFlags();

  // True when the 1-based page `number` belongs to the page list text (see docs/settings.md).
  static bool in_list(int number, std::string_view list);

  // Expands a naming template (without extension); see docs/naming.md.
  std::string ParseFileMask(std::string_view base_name, std::string_view mask, int counter,
                            const MaskSource& source) const;

  // The result path of a source file and the paths of its five thumbnails. Reads nothing
  // but the source's header, and only when a template asks for "<orientation>".
  DestNames create_dest_filename(const DestRequest& request) const;
};

}  // namespace pictavo::settings
