#include "settings/settings_keys.h"

#include <algorithm>
#include <span>

#include "platform/text_encoding.h"

namespace pictavo::settings {
namespace {

using S = TMainSettings;

// Rows that are not one plain field: the walk expands them.
enum class RowKind : uint8_t {
  kField,
  kMainName,  // "Main"/"Name": written in mode 3 only, never read
  kCustomPlaces,
  kPlaces,
  kSvgFonts,
  kPltPens,
  kThumbnails,  // legacy group, "Count_more" and the five sets
};

struct KeyRow {
  std::string_view section;  // as the writer spells it
  std::string_view key;
  FieldRef (*field)(S&) = nullptr;
  RowKind kind = RowKind::kField;
  bool front_end = false;          // written in mode 1 only
  std::string_view reg_name = {};  // when it is not section + "_" + key
};

#define KEY(sec, key, member)                            \
  KeyRow {                                               \
    sec, key, [](S& s) -> FieldRef { return &s.member; } \
  }
#define FE_KEY(sec, key, member)                                                \
  KeyRow {                                                                      \
    sec, key, [](S& s) -> FieldRef { return &s.member; }, RowKind::kField, true \
  }
#define REG_KEY(sec, key, member, reg)                                                \
  KeyRow {                                                                            \
    sec, key, [](S& s) -> FieldRef { return &s.member; }, RowKind::kField, false, reg \
  }
#define SPECIAL(sec, kind, front_end) \
  KeyRow {                            \
    sec, "", nullptr, kind, front_end \
  }

// Reading order of the settings file. Section spellings are the writer's: the reader finds
// "AI_Write", "PDF_Write", "GBR"/"Type" and the like case-insensitively.
constexpr KeyRow kRows[] = {
    KEY("Shp_write", "Prj", shp_write.prj),
    KEY("Bpg_write", "Quality", bpg_write.quality),
    KEY("Jxr_write", "Quality", jxr_write.quality),
    KEY("Avif_write", "Quality", avif_write.quality),
    KEY("WebP_write", "Quality", webp_write.quality),
    KEY("WebP_write", "Delay", webp_write.delay),
    KEY("WebP_write", "Lossless", webp_write.lossless),

    KEY("PDF_EPS_PS", "Res", pdf_eps_ps.res),
    KEY("PDF_EPS_PS", "Color_res", pdf_eps_ps.color_res),
    KEY("PDF_EPS_PS", "AA", pdf_eps_ps.aa),
    KEY("PDF_EPS_PS", "Alpha", pdf_eps_ps.alpha),
    KEY("PDF_EPS_PS", "Extract_images", pdf_eps_ps.extract_images),
    KEY("PDF_EPS_PS", "Font_path", pdf_eps_ps.font_path),

    KEY("PDF_write", "Compression", pdf_write.compression),
    KEY("PDF_write", "Paper", pdf_write.paper),
    KEY("PDF_write", "Orientation", pdf_write.orientation),
    KEY("PDF_write", "Jpg_Quality", pdf_write.jpg_quality),
    KEY("PDF_write", "Save_in_cmyk", pdf_write.save_in_cmyk),
    KEY("PDF_write", "Default_icc", pdf_write.default_icc),
    KEY("PDF_write", "The_icc", pdf_write.the_icc),
    KEY("PDF_write", "Icc", pdf_write.icc),

    KEY("EPS_write", "Save_in_cmyk", eps_write.save_in_cmyk),
    KEY("EPS_write", "Create_preview", eps_write.create_preview),

    REG_KEY("DXF_write", "Version", dxf_write.version, "DXF_Write_Version"),
    KEY("DXF_write", "Text", dxf_write.text),
    KEY("DXF_write", "Spline", dxf_write.spline),
    KEY("DWG_write", "Version", dwg_write.version),
    REG_KEY("DWG_write", "Text", dwg_write.text, "DWG_Write_Text"),
    KEY("DWG_write", "Spline", dwg_write.spline),

    REG_KEY("SVG_read", "Size", svg_read.size, "SVG_Read_Size"),
    KEY("Vec", "DXF_DWG_Units", vec.dxf_dwg_units),

    KEY("AI_write", "Compression", ai_write.compression),
    KEY("AI_write", "Paper", ai_write.paper),
    KEY("AI_write", "Jpg_Quality", ai_write.jpg_quality),
    KEY("AI_write", "Save_in_cmyk", ai_write.save_in_cmyk),
    KEY("AI_write", "Default_icc", ai_write.default_icc),
    KEY("AI_write", "The_icc", ai_write.the_icc),
    KEY("AI_write", "Icc", ai_write.icc),
    KEY("AI_write", "Create_preview", ai_write.create_preview),
    KEY("AI_write", "Ver", ai_write.ver),

    KEY("PDF_write", "set_user_password", pdf_write.set_user_password),
    KEY("PDF_write", "set_owner_password", pdf_write.set_owner_password),
    KEY("PDF_write", "user_password", pdf_write.user_password),
    KEY("PDF_write", "owner_password", pdf_write.owner_password),
    KEY("PDF_write", "allow_printing", pdf_write.allow_printing),
    KEY("PDF_write", "allow_editing", pdf_write.allow_editing),
    KEY("PDF_write", "allow_copying", pdf_write.allow_copying),
    KEY("PDF_write", "create_pdf_a", pdf_write.create_pdf_a),
    KEY("PDF_write", "create_searchable_pdf", pdf_write.create_searchable_pdf),
    KEY("PDF_write", "searchable_pdf_lang", pdf_write.searchable_pdf_lang),
    KEY("PDF_write", "create_linearized_pdf", pdf_write.create_linearized_pdf),
    KEY("PDF_write", "rotate_pdf", pdf_write.rotate_pdf),
    KEY("PDF_write", "curves_pdf", pdf_write.curves_pdf),
    KEY("PDF_write", "image_res_pdf", pdf_write.image_res_pdf),

    KEY("PCL_write", "Paper", pcl_write.paper),
    KEY("PCL_write", "Position", pcl_write.position),
    KEY("PCL_write", "Monochrome", pcl_write.monochrome),
    KEY("PCL_write", "Pcl3_x", pcl_write.pcl3_x),
    KEY("PCL_write", "Pcl3_y", pcl_write.pcl3_y),
    KEY("PCL_write", "Pcl4_x", pcl_write.pcl4_x),
    KEY("PCL_write", "Pcl4_y", pcl_write.pcl4_y),

    KEY("Raw_bmp", "Width", raw_bmp.width),
    KEY("Raw_bmp", "Height", raw_bmp.height),
    KEY("Raw_bmp", "Header_size", raw_bmp.header_size),
    KEY("Raw_bmp", "Row_align", raw_bmp.row_align),
    KEY("Raw_bmp", "Bits_per_channel", raw_bmp.bits_per_channel),
    KEY("Raw_bmp", "Order", raw_bmp.order),

    KEY("RAW_read", "White_balance", raw_read.white_balance),
    KEY("RAW_read", "Brightness", raw_read.brightness),
    KEY("RAW_read", "Interpolation", raw_read.interpolation),
    KEY("RAW_read", "Half_Size", raw_read.half_size),
    KEY("RAW_read", "Auto_color", raw_read.auto_color),
    KEY("RAW_read", "Denoise", raw_read.denoise),
    KEY("RAW_read", "16bit", raw_read.bits16),
    KEY("RAW_read", "jpeg", raw_read.jpeg),

    KEY("Vector", "Zoom", vector.zoom),
    KEY("SWF_read", "Extract_images", swf_read.extract_images),

    KEY("DXF_DWG_read", "Gray", dxf_dwg_read.gray),
    KEY("DXF_DWG_read", "Layout", dxf_dwg_read.layout),
    KEY("DXF_DWG_read", "Units", dxf_dwg_read.units),
    KEY("DXF_DWG_read", "Extract_layers", dxf_dwg_read.extract_layers),

    KEY("STL_read", "X", stl_read.x),
    KEY("STL_read", "Y", stl_read.y),
    KEY("STL_read", "Z", stl_read.z),
    KEY("STL_read", "Milti_frames", stl_read.milti_frames),
    KEY("STL_read", "Frames", stl_read.frames),
    KEY("STL_read", "Change_x", stl_read.change_x),
    KEY("STL_read", "Change_y", stl_read.change_y),
    KEY("STL_read", "Change_z", stl_read.change_z),
    KEY("STL_read", "X_from", stl_read.x_from),
    KEY("STL_read", "X_to", stl_read.x_to),
    KEY("STL_read", "Y_from", stl_read.y_from),
    KEY("STL_read", "Y_to", stl_read.y_to),
    KEY("STL_read", "Z_from", stl_read.z_from),
    KEY("STL_read", "Z_to", stl_read.z_to),

    // "Main": files and cloud folders.
    KEY("Main", "S_file", main.s_file),
    KEY("Main", "O_file", main.o_file),
    KeyRow{"Main", "Default_local_option",
           [](S& s) -> FieldRef { return &s.main.default_local_option; }, RowKind::kField, true,
           "Main_default_local_option"},
    KEY("Main", "Default_local_subfolder", main.default_local_subfolder),
    KEY("Main", "Default_local_folder", main.default_local_folder),
    FE_KEY("Main", "Default_DropBox_folder", main.default_dropbox_folder),
    FE_KEY("Main", "Default_BoxCom_folder", main.default_boxcom_folder),
    FE_KEY("Main", "Default_SkyDrive_folder", main.default_skydrive_folder),
    FE_KEY("Main", "Default_GDrive_folder", main.default_gdrive_folder),

    REG_KEY("Window", "Extension1", window.extension[0], "Extension1"),
    REG_KEY("Window", "Extension2", window.extension[1], "Extension2"),
    REG_KEY("Window", "Extension3", window.extension[2], "Extension3"),
    REG_KEY("Window", "Extension4", window.extension[3], "Extension4"),
    REG_KEY("Window", "Extension5", window.extension[4], "Extension5"),
    REG_KEY("Window", "Extension6", window.extension[5], "Extension6"),
    KEY("Window", "Left", window.left),
    KEY("Window", "Top", window.top),
    KEY("Window", "Height", window.height),
    KEY("Window", "Width", window.width),
    KEY("Window", "Max", window.max),
    KEY("Window", "Adv_folder", window.adv_folder),
    KEY("Window", "Adv_sub_folders", window.adv_sub_folders),
    KEY("Window", "Adv_ext", window.adv_ext),
    KEY("Window", "Size_less", window.size_less),
    KEY("Window", "Size_more", window.size_more),
    KEY("Window", "Less_than", window.less_than),
    KEY("Window", "More_than", window.more_than),
    KEY("Window", "Less_bytes", window.less_bytes),
    KEY("Window", "More_bytes", window.more_bytes),
    KEY("Window", "Step1_splitter1", window.step1_splitter1),
    KEY("Window", "Step1_splitter2", window.step1_splitter2),
    KEY("Window", "Step1_splitter3", window.step1_splitter3),
    KEY("Window", "Step2_splitter1", window.step2_splitter1),

    KEY("View", "Left", view.left),
    KEY("View", "Top", view.top),
    KEY("View", "Height", view.height),
    KEY("View", "Width", view.width),

    // "Main": interface and folders.
    FE_KEY("Main", "Image_preview", main.image_preview),
    FE_KEY("Main", "Image_preview2", main.image_preview2),
    FE_KEY("Main", "Show_quit_dialog", main.show_quit_dialog),
    FE_KEY("Main", "Show_clearlist_dialog", main.show_clearlist_dialog),
    FE_KEY("Main", "Show_file_options", main.show_file_options),
    FE_KEY("Main", "Show_modify_filename", main.show_modify_filename),
    FE_KEY("Main", "Show_hidden", main.show_hidden),
    FE_KEY("Main", "Icons_list_details", main.icons_list_details),
    FE_KEY("Main", "Language", main.language),
    FE_KEY("Main", "Dialog_folder", main.dialog_folder),
    FE_KEY("Main", "Default_script", main.default_script),
    FE_KEY("Main", "Keep_actions", main.keep_actions),
    KEY("Main", "Source_folder", main.source_folder),
    KEY("Main", "Init_folder", main.init_folder),
    KEY("Main", "Current_folder", main.current_folder),

    SPECIAL("CustomPlaces", RowKind::kCustomPlaces, true),
    SPECIAL("Places", RowKind::kPlaces, true),

    KEY("EMF", "rclbounds", emf.rclbounds),
    KEY("EMF", "xps", emf.xps),

    SPECIAL("SVG", RowKind::kSvgFonts, false),
    SPECIAL("PLT", RowKind::kPltPens, false),

    // "Main": formats, transparency, priority, temporary folder.
    FE_KEY("Main", "Ext_index", main.ext_index),
    KEY("Main", "Source_ext", main.source_ext),
    KEY("Main", "File_mask", main.file_mask),
    KEY("Main", "Dest_path", main.dest_path),
    KEY("Main", "Same_as_source", main.same_as_source),
    KEY("Main", "Dest_ext", main.dest_ext),
    SPECIAL("Main", RowKind::kMainName, false),
    KEY("Main", "Use_file_list", main.use_file_list),
    KEY("Main", "Photoshop_effects", main.photoshop_effects),
    KEY("Main", "Show_transp", main.show_transp),
    KEY("Main", "Transp_red", main.transp_red),
    KEY("Main", "Transp_green", main.transp_green),
    KEY("Main", "Transp_blue", main.transp_blue),
    KEY("Main", "Cpu_priority", main.cpu_priority),
    KEY("Main", "Read_subfolders", main.read_subfolders),
    KEY("Main", "Temp_folder", main.temp_folder),

    KEY("Multipage_settings", "Loading_option", multipage_settings.loading_option),
    KEY("Multipage_settings", "Actions_option", multipage_settings.actions_option),
    KEY("Multipage_settings", "Loading_pages", multipage_settings.loading_pages),
    KEY("Multipage_settings", "Apply_actions_pages", multipage_settings.apply_actions_pages),

    KEY("Skip_blank_settings", "Skip_blank", skip_blank_settings.skip_blank),
    KEY("Skip_blank_settings", "Skip_blank_accuracy", skip_blank_settings.skip_blank_accuracy),

    KEY("PSD", "Load_layers", psd.load_layers),

    KEY("GIF", "Transparent", gif.transparent),
    KEY("GIF", "Auto_transp", gif.auto_transp),
    KEY("GIF", "Color_red", gif.color_red),
    KEY("GIF", "Color_green", gif.color_green),
    KEY("GIF", "Color_blue", gif.color_blue),
    KEY("GIF", "Interlaced", gif.interlaced),
    KEY("GIF", "Delay_time", gif.delay_time),
    KEY("GIF", "Loop", gif.loop),

    KEY("VEC", "Ras2Vec_option", vec.ras2vec_option),
    KEY("VEC", "Ignore_raster", vec.ignore_raster),
    KEY("VEC", "Ras2Vec_precision", vec.ras2vec_precision),
    KEY("VEC", "Rasterize_vector", vec.rasterize_vector),

    KEY("JPG", "Use_quality", jpg.use_quality),
    KEY("JPG", "Quality", jpg.quality),
    KEY("JPG", "Size", jpg.size),
    KEY("JPG", "Progressive", jpg.progressive),
    KEY("JPG", "Color_space", jpg.color_space),
    KEY("JPG", "Save_jpeg", jpg.save_jpeg),

    KEY("SVG", "Raster", svg.raster),
    KEY("SVG", "Raster_lossless", svg.raster_lossless),
    KEY("SVG", "Quality", svg.quality),
    KEY("SVG", "Compressed", svg.compressed),
    KEY("SVG", "Linked_images", svg.linked_images),
    KEY("SVG", "Stroke_width", svg.stroke_width),
    KEY("SVG", "Set_stroke_width", svg.set_stroke_width),
    KEY("SVG", "Color_red", svg.color_red),
    KEY("SVG", "Color_green", svg.color_green),
    KEY("SVG", "Color_blue", svg.color_blue),
    KEY("SVG", "Set_color", svg.set_color),
    KEY("SVG", "Replace_fonts", svg.replace_fonts),

    KEY("TIF", "Compression", tif.compression),
    KEY("TIF", "Save_in_cmyk", tif.save_in_cmyk),
    KEY("TIF", "JPG_Quality", tif.jpg_quality),
    KEY("TIF", "Save_tiff", tif.save_tiff),

    KEY("PNG", "Transparent", png.transparent),
    KEY("PNG", "Auto_transp", png.auto_transp),
    KEY("PNG", "Color_red", png.color_red),
    KEY("PNG", "Color_green", png.color_green),
    KEY("PNG", "Color_blue", png.color_blue),
    KEY("PNG", "Interlaced", png.interlaced),
    KEY("PNG", "Compression", png.compression),
    KEY("PNG", "Animated", png.animated),
    KEY("PNG", "Delay", png.delay),
    KEY("PNG", "Optimized", png.optimized),

    KEY("SWF", "Quality", swf.quality),
    KEY("SWF", "Animated", swf.animated),
    KEY("SWF", "Frame_rate", swf.frame_rate),

    KEY("ICO", "create_multi_size", ico.create_multi_size),
    KEY("ICO", "256p", ico.p256),
    KEY("ICO", "128p", ico.p128),
    KEY("ICO", "64p", ico.p64),
    KEY("ICO", "48p", ico.p48),
    KEY("ICO", "32p", ico.p32),
    KEY("ICO", "24p", ico.p24),
    KEY("ICO", "16p", ico.p16),

    KEY("BMP", "Compression", bmp.compression),
    KEY("PCX", "Compression", pcx.compression),
    KEY("TGA", "Compression", tga.compression),

    KEY("PLT", "Apply_pens_settings", plt.apply_pens_settings),
    KEY("PLT", "Optimized", plt.optimized),
    KEY("PLT", "Remove_dup", plt.remove_dup),
    KEY("PLT", "Rotate", plt.rotate),
    KEY("PLT", "PW", plt.pw),
    KEY("PLT", "Save_size", plt.save_size),

    KEY("GBR", "Raster", gbr.raster),
    KEY("GBR", "type", gbr.type),

    KEY("Main", "Check_files", main.check_files),

    REG_KEY("EXR_HDR", "True_color", exr_hdr.true_color, "EXR_HDR_True_Color"),
    KEY("JP2", "Quality", jp2.quality),
    KEY("SCN", "Level", scn.level),
    KEY("SVS", "Level", svs.level),
    KEY("SID", "Level", sid.level),
    KEY("FIT", "Option", fit.option),
    KEY("TXT", "Paper", txt.paper),
    KEY("TXT", "Font_size", txt.font_size),
    KEY("TXT", "Landscape", txt.landscape),

    KEY("File_name", "Mask", file_name.mask),
    KEY("File_name", "Mask_prefix", file_name.mask_prefix),
    KEY("File_name", "Mask_suffix", file_name.mask_suffix),
    KEY("File_name", "Start_number", file_name.start_number),

    KEY("Multipage", "Option", multipage.option),
    KEY("Multipage", "Merge_to_one", multipage.merge_to_one),
    KEY("Multipage", "Group", multipage.group),

    KEY("Colors", "Option", colors.option),
    KEY("Colors", "Bits_per_sample", colors.bits_per_sample),
    KEY("Colors", "Samples_per_pixel", colors.samples_per_pixel),

    KEY("DPI", "Option", dpi.option),
    KEY("DPI", "X_dpi", dpi.x_dpi),
    KEY("DPI", "Y_dpi", dpi.y_dpi),

    KEY("Save", "Copy_alpha", save.copy_alpha),
    KEY("Save", "Copy_iptc", save.copy_iptc),
    KEY("Save", "Copy_exif", save.copy_exif),
    KEY("Save", "set_exif_title", save.set_exif_title),
    KEY("Save", "set_exif_subject", save.set_exif_subject),
    KEY("Save", "set_exif_keywords", save.set_exif_keywords),
    KEY("Save", "set_exif_comment", save.set_exif_comment),
    KEY("Save", "set_exif_author", save.set_exif_author),
    KEY("Save", "set_exif_copyright", save.set_exif_copyright),
    KEY("Save", "exif_title", save.exif_title),
    KEY("Save", "exif_subject", save.exif_subject),
    KEY("Save", "exif_keywords", save.exif_keywords),
    KEY("Save", "exif_comment", save.exif_comment),
    KEY("Save", "exif_author", save.exif_author),
    KEY("Save", "exif_copyright", save.exif_copyright),
    KEY("Save", "Icc_option", save.icc_option),
    KEY("Save", "Icc_file", save.icc_file),
    KEY("Save", "Create_copies", save.create_copies),
    KEY("Save", "Number_of_copies", save.number_of_copies),
    KEY("Save", "Copy_mask", save.copy_mask),
    KEY("Save", "Copy_counter", save.copy_counter),
    REG_KEY("Save", "OverWrite", save.overwrite, "Save_Overwrite"),
    KEY("Save", "Same_date", save.same_date),
    KEY("Save", "Save_path", save.save_path),
    KEY("Save", "Save_path_option", save.save_path_option),
    KEY("Save", "Delete_files", save.delete_files),
    KEY("Save", "Delete_folders", save.delete_folders),
    KEY("Save", "Move_files", save.move_files),
    KEY("Save", "Move_files_folder", save.move_files_folder),
    KEY("Save", "Move_unprocessed_files", save.move_unprocessed_files),
    KEY("Save", "Move_unprocessed_files_folder", save.move_unprocessed_files_folder),

    KEY("File_name", "Replace", file_name.replace),
    KEY("File_name", "Substring_1", file_name.substring_1),
    KEY("File_name", "Substring_2", file_name.substring_2),
    KEY("File_name", "Lower_case_ext", file_name.lower_case_ext),
    KEY("File_name", "Case_option", file_name.case_option),
    KEY("File_name", "Change_case", file_name.change_case),

    SPECIAL("Thumbnails", RowKind::kThumbnails, false),

    KEY("Context_menu", "On", context_menu.on),

    KEY("Limits", "Tool_timeout", limits.tool_timeout),
    KEY("Limits", "Render_timeout", limits.render_timeout),
    KEY("Limits", "Office_timeout", limits.office_timeout),
    KEY("Limits", "Ocr_timeout", limits.ocr_timeout),
    KEY("Limits", "Max_megapixels", limits.max_megapixels),
    KEY("Limits", "Max_memory_mb", limits.max_memory_mb),
    KEY("Limits", "Max_unpacked_mb", limits.max_unpacked_mb),
};

#undef KEY
#undef FE_KEY
#undef REG_KEY
#undef SPECIAL

// Keys of a thumbnail set; the first nine also make up the legacy group.
struct ThumbRow {
  std::string_view key;
  FieldRef (*group_field)(ThumbnailGroup&);  // null for keys of the sets only
  FieldRef (*set_field)(ThumbnailSet&);
};

#define TKEY(key, member)                                         \
  ThumbRow {                                                      \
    key, [](ThumbnailGroup& g) -> FieldRef { return &g.member; }, \
        [](ThumbnailSet& t) -> FieldRef { return &t.member; }     \
  }
#define TSET_KEY(key, member)                                           \
  ThumbRow {                                                            \
    key, nullptr, [](ThumbnailSet& t) -> FieldRef { return &t.member; } \
  }

constexpr ThumbRow kThumbRows[] = {
    TKEY("Create_thumbnails", create_thumbnails),
    TKEY("Folder", folder),
    TKEY("Width", width),
    TKEY("Height", height),
    TKEY("Resize_type", resize_type),
    TKEY("Do_not_resize_if_less", do_not_resize_if_less),
    TKEY("Mask", mask),
    TKEY("Counter", counter),
    TKEY("Ext", ext),
    TSET_KEY("Jpg_q", jpg_q),
    TSET_KEY("First_p", first_p),
};

#undef TKEY
#undef TSET_KEY

// One key of a list item: the file key is `key` + n; the registry name is either
// section + "_" + key + n, or (places) item prefix + n + "_" + key.
template <typename Item>
struct ItemRow {
  std::string_view key;
  FieldRef (*field)(Item&);
};

struct ListNames {
  std::string_view section;
  std::string_view count_key;
  std::string_view reg_count;
  std::string_view reg_item_prefix;  // empty: section + "_" + key + n
};

constexpr ItemRow<CustomPlace> kCustomPlaceRows[] = {
    {"Name", [](CustomPlace& p) -> FieldRef { return &p.name; }},
    {"Folder", [](CustomPlace& p) -> FieldRef { return &p.folder; }},
    {"Subfolder", [](CustomPlace& p) -> FieldRef { return &p.subfolder; }},
    {"Option", [](CustomPlace& p) -> FieldRef { return &p.option; }},
};
constexpr ItemRow<Place> kPlaceRows[] = {
    {"Type", [](Place& p) -> FieldRef { return &p.type; }},
    {"Folder", [](Place& p) -> FieldRef { return &p.folder; }},
    {"Subfolder", [](Place& p) -> FieldRef { return &p.subfolder; }},
    {"Option", [](Place& p) -> FieldRef { return &p.option; }},
    {"Custom_ind", [](Place& p) -> FieldRef { return &p.custom_ind; }},
};
constexpr ItemRow<SvgFontReplacement> kSvgFontRows[] = {
    {"Font1_", [](SvgFontReplacement& f) -> FieldRef { return &f.font1; }},
    {"Font2_", [](SvgFontReplacement& f) -> FieldRef { return &f.font2; }},
};
constexpr ItemRow<PlotterPen> kPenRows[] = {
    {"Pen_num_", [](PlotterPen& p) -> FieldRef { return &p.num; }},
    {"Pen_width_", [](PlotterPen& p) -> FieldRef { return &p.width; }},
    {"Pen_color_", [](PlotterPen& p) -> FieldRef { return &p.color; }},
};

constexpr ListNames kCustomPlaceNames{"CustomPlaces", "Count", "CustomPlaces_Count", "CustomPlace"};
constexpr ListNames kPlaceNames{"Places", "Count", "Places_Count", "Place"};
constexpr ListNames kSvgFontNames{"SVG", "Count", "SVG_Count", ""};
constexpr ListNames kPenNames{"PLT", "Pens_Count", "PLT_Pens_Count", ""};

using Visit = std::function<void(const SettingEntry&)>;

// A damaged count ("Count=2000000000") must not exhaust memory; real lists are a few dozen.
constexpr int kMaxListItems = 1000;

template <typename Item>
void WalkList(std::vector<Item>& list, const ListNames& names, std::span<const ItemRow<Item>> rows,
              WalkDirection direction, const Visit& visit) {
  int count = direction == WalkDirection::kWrite ? static_cast<int>(list.size()) : 0;
  visit(SettingEntry{std::string(names.section), std::string(names.count_key),
                     std::string(names.reg_count), &count});
  if (direction == WalkDirection::kRead) {
    // Items are read over fresh defaults, so a missing item key gets the list's own fallback.
    list.clear();
    if (count > 0) list.resize(static_cast<size_t>(std::min(count, kMaxListItems)));
  }
  for (size_t i = 0; i < list.size(); ++i) {
    const std::string n = std::to_string(i + 1);
    for (const ItemRow<Item>& row : rows) {
      std::string reg = names.reg_item_prefix.empty()
                            ? std::string(names.section) + "_" + std::string(row.key) + n
                            : std::string(names.reg_item_prefix) + n + "_" + std::string(row.key);
      visit(SettingEntry{std::string(names.section), std::string(row.key) + n, std::move(reg),
                         row.field(list[i])});
    }
  }
}

std::string SetSection(int set) {
  return set == 0 ? std::string("Thumbnails") : "Thumbnails_" + std::to_string(set);
}

void WalkThumbnails(TMainSettings& s, const WalkOptions& options, const Visit& visit) {
  if (options.direction == WalkDirection::kRead) {
    for (const ThumbRow& row : kThumbRows)
      if (row.group_field)
        visit(SettingEntry{"Thumbnails", std::string(row.key), "Thumbnails_" + std::string(row.key),
                           row.group_field(s.thumbnails)});
  } else if (options.form == WalkForm::kFile) {
    // Written for the front end; the reader fixes the set count at 5 whatever this says.
    int count_more = TMainSettings::kThumbnailSetCount;
    visit(SettingEntry{"Thumbnails", "Count_more", "", &count_more});
  }
  for (int set = 0; set < TMainSettings::kThumbnailSetCount; ++set) {
    const std::string section = SetSection(set);
    for (const ThumbRow& row : kThumbRows)
      visit(SettingEntry{section, std::string(row.key), section + "_" + std::string(row.key),
                         row.set_field(s.thumbnail_sets[static_cast<size_t>(set)])});
  }
}

}  // namespace

FieldType TypeOf(const FieldRef& field) {
  return static_cast<FieldType>(field.index());
}

void WalkSettings(TMainSettings& s, const WalkOptions& options, const Visit& visit) {
  const bool writing = options.direction == WalkDirection::kWrite;
  for (const KeyRow& row : kRows) {
    if (writing && row.front_end && options.mode != 1) continue;
    switch (row.kind) {
      case RowKind::kField: {
        std::string reg = row.reg_name.empty()
                              ? std::string(row.section) + "_" + std::string(row.key)
                              : std::string(row.reg_name);
        visit(SettingEntry{std::string(row.section), std::string(row.key), std::move(reg),
                           row.field(s)});
        break;
      }
      case RowKind::kMainName:
        // The front end shows the output format under this key; nothing reads it back.
        if (writing && options.mode == 3 && options.form == WalkForm::kFile) {
          std::string name = platform::AsciiUpper(s.main.dest_ext);
          visit(SettingEntry{"Main", "Name", "", &name});
        }
        break;
      case RowKind::kCustomPlaces:
        WalkList<CustomPlace>(s.custom_places, kCustomPlaceNames, kCustomPlaceRows,
                              options.direction, visit);
        break;
      case RowKind::kPlaces:
        WalkList<Place>(s.places, kPlaceNames, kPlaceRows, options.direction, visit);
        break;
      case RowKind::kSvgFonts:
        WalkList<SvgFontReplacement>(s.svg.fonts, kSvgFontNames, kSvgFontRows, options.direction,
                                     visit);
        break;
      case RowKind::kPltPens:
        WalkList<PlotterPen>(s.plt.pens, kPenNames, kPenRows, options.direction, visit);
        break;
      case RowKind::kThumbnails:
        WalkThumbnails(s, options, visit);
        break;
    }
  }
}

std::string FormatValue(const FieldRef& field) {
  switch (TypeOf(field)) {
    case FieldType::kInteger:
      return std::to_string(*std::get<int*>(field));
    case FieldType::kBoolean:
      return *std::get<bool*>(field) ? "1" : "0";
    case FieldType::kText:
      return *std::get<std::string*>(field);
    case FieldType::kColor:
      return std::to_string(*std::get<ColorChannel*>(field));
  }
  return {};
}

bool ParseValue(const FieldRef& field, std::string_view text) {
  if (TypeOf(field) == FieldType::kText) {
    *std::get<std::string*>(field) = std::string(text);
    return true;
  }
  std::optional<int> number = ParseInteger(text);
  if (!number) return false;
  switch (TypeOf(field)) {
    case FieldType::kInteger:
      *std::get<int*>(field) = *number;
      break;
    case FieldType::kBoolean:
      *std::get<bool*>(field) = *number != 0;
      break;
    case FieldType::kColor:
      *std::get<ColorChannel*>(field) = static_cast<ColorChannel>(*number & 0xFF);
      break;
    case FieldType::kText:
      break;
  }
  return true;
}

}  // namespace pictavo::settings
