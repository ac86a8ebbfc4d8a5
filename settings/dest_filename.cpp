// Destination names: template expansion and the result paths of a source file.
#include <algorithm>

#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "settings/date_format.h"
#include "settings/main_settings.h"

namespace pictavo::settings {
namespace {

using platform::AsciiLower;
using platform::AsciiUpper;
using platform::kPathDelim;

constexpr int kMaxReplacements = 1000;

// The counter as decimal, left-padded with "0" to `width` (a longer number stays whole).
std::string Padded(int value, size_t width) {
  std::string digits = std::to_string(value);
  if (digits.size() < width) digits.insert(0, width - digits.size(), '0');
  return digits;
}

// Byte offsets of the characters of UTF-8 text, plus its end, so that names are cut by
// character rather than by byte.
std::vector<size_t> CharStarts(std::string_view s) {
  std::vector<size_t> starts;
  for (size_t i = 0; i < s.size(); ++i)
    if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) starts.push_back(i);
  starts.push_back(s.size());
  return starts;
}

// Characters [first, first + count) of the text, clipped to it.
std::string CharSlice(std::string_view s, long first, long count) {
  const std::vector<size_t> starts = CharStarts(s);
  const long length = static_cast<long>(starts.size()) - 1;
  first = std::clamp(first, 0L, length);
  const long last = std::clamp(first + std::max(count, 0L), first, length);
  return std::string(s.substr(starts[first], starts[last] - starts[first]));
}

long CharCount(std::string_view s) {
  return static_cast<long>(CharStarts(s).size()) - 1;
}

std::optional<int> ToInt(std::string_view text) {
  return ParseInteger(text);
}

bool EndsWithNoCase(std::string_view s, std::string_view suffix) {
  return s.size() >= suffix.size() &&
         platform::EqualsNoCase(s.substr(s.size() - suffix.size()), suffix);
}

// The extension of a path's file name, without its point ("" when none).
std::string ExtensionOf(std::string_view path) {
  const size_t slash = path.rfind(kPathDelim);
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  const size_t dot = name.rfind('.');
  return dot == std::string_view::npos ? std::string() : std::string(name.substr(dot + 1));
}

std::string RootFolder() {
  return std::string(1, kPathDelim);
}

std::string StripLeadingDelims(std::string_view folder) {
  while (!folder.empty() && folder.front() == kPathDelim) folder.remove_prefix(1);
  return std::string(folder);
}

std::string TrimBlanks(std::string_view s) {
  while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  return std::string(s);
}

}  // namespace

std::string TMainSettings::ParseFileMask(std::string_view base_name, std::string_view mask,
                                         int counter, const MaskSource& source) const {
  if (base_name.empty()) return "null";
  if (mask.empty()) mask = "<filename>";
  static const ImageHeaderProbe kNoProbe;
  const ImageHeaderProbe& probe = source.probe ? *source.probe : kNoProbe;

  std::string out;
  size_t i = 0;
  while (i < mask.size()) {
    if (mask[i] == '#') {
      size_t run = 1;
      while (i + run < mask.size() && mask[i + run] == '#') ++run;
      out += Padded(counter, run);
      i += run;
      continue;
    }
    if (mask[i] != '<') {
      out += mask[i++];
      continue;
    }
    const size_t close = mask.find('>', i);
    if (close == std::string_view::npos) {
      out.append(mask.substr(i));  // an unclosed token is plain text
      break;
    }
    const std::string_view token = mask.substr(i + 1, close - i - 1);
    i = close + 1;
    const size_t colon = token.find(':');
    const std::string name = AsciiLower(token.substr(0, colon));
    const std::string_view arg =
        colon == std::string_view::npos ? std::string_view() : token.substr(colon + 1);

    if (name == "filename") {
      out += base_name;
    } else if (name == "subname") {
      // "<subname:p,n>": n characters from character p, counted from 1 at the left.
      const size_t comma = arg.find(',');
      std::optional<int> p = ToInt(arg.substr(0, comma));
      std::optional<int> n =
          comma == std::string_view::npos ? std::nullopt : ToInt(arg.substr(comma + 1));
      if (p && n && *n > 0) out += CharSlice(base_name, std::max(*p, 1) - 1, *n);
    } else if (name == "first") {
      if (std::optional<int> n = ToInt(arg); n && *n > 0) out += CharSlice(base_name, 0, *n);
    } else if (name == "last") {
      if (std::optional<int> n = ToInt(arg); n && *n > 0)
        out += CharSlice(base_name, std::max(CharCount(base_name) - *n, 0L), *n);
    } else if (name == "time" || name == "date") {
      out += FormatDateTime(arg, source.now ? LocalDateTime(*source.now * 1000) : LocalNow());
    } else if (name == "o_time" || name == "o_date") {
      if (std::optional<DateTimeParts> t = FileLocalWriteTime(source.source_path))
        out += FormatDateTime(arg, *t);
    } else if (name == "ext") {
      out += ExtensionOf(source.source_path);
    } else if (name == "tif_tag") {
      const bool tiff =
          EndsWithNoCase(source.source_path, ".tif") || EndsWithNoCase(source.source_path, ".tiff");
      if (std::optional<int> tag = ToInt(arg); tiff && tag && probe.tiff_tag)
        out += probe.tiff_tag(source.source_path, *tag).value_or("");
    } else if (name == "exif_date_time") {
      if (probe.exif_date_time) out += probe.exif_date_time(source.source_path).value_or("");
    } else if (name == "page") {
      // Only when pages are written as separate files.
      if (multipage.option_flags.Is(3))
        out +=
            Padded(source.page + 1, static_cast<size_t>(std::count(arg.begin(), arg.end(), '#')));
    } else if (name == "orientation") {
      // A square counts as landscape, deliberately.
      out += source.width >= source.height ? "landscape" : "portrait";
    }
    // Any other token expands to nothing.
  }
  return out;
}

DestNames TMainSettings::create_dest_filename(const DestRequest& request) const {
  const std::string& source = request.source_path;
  const size_t slash = source.rfind(kPathDelim);
  const std::string folder =
      slash == std::string::npos ? std::string() : source.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? source : source.substr(slash + 1);
  const size_t dot = name.rfind('.');
  std::string base = dot == std::string::npos ? name : name.substr(0, dot);
  const std::string relative = StripLeadingDelims(folder);

  if (file_name.replace && !file_name.substring_1.empty()) {
    // The cap is deliberate: a replacement that contains the searched text stops there.
    for (int n = 0; n < kMaxReplacements; ++n) {
      const size_t at = base.find(file_name.substring_1);
      if (at == std::string::npos) break;
      base.replace(at, file_name.substring_1.size(), file_name.substring_2);
    }
  }

  const std::string mask = AsciiLower(file_name.mask_prefix) + AsciiLower(file_name.mask) +
                           AsciiLower(file_name.mask_suffix);

  MaskSource mask_source{source, 0, 0, request.page, std::nullopt, request.probe};
  bool wants_size = mask.find("<orientation>") != std::string::npos;
  for (const ThumbnailSet& set : thumbnail_sets)
    wants_size = wants_size || AsciiLower(set.mask).find("<orientation>") != std::string::npos;
  if (wants_size && request.probe && request.probe->size && platform::FileExists(source)) {
    if (std::optional<ImageSize> size = request.probe->size(source)) {
      mask_source.width = size->width;
      mask_source.height = size->height;
    }
  }

  auto change_case = [this](std::string n) {
    if (!file_name.change_case) return n;
    if (file_name.case_option_flags.Is(1)) return AsciiUpper(n);
    if (file_name.case_option_flags.Is(2)) return AsciiLower(n);
    return n;
  };
  auto ext_case = [this](std::string_view ext) {
    return file_name.lower_case_ext ? AsciiLower(ext) : AsciiUpper(ext);
  };
  // Destination folder + (kept folder structure) + name.
  auto place = [&](const std::string& dest_folder, const std::string& file) {
    if (!save.save_path) return dest_folder + file;
    if (save.save_path_option == 1) return dest_folder + relative + file;
    std::string root = main.current_folder.empty() ? main.source_folder : main.current_folder;
    root = root.empty() ? RootFolder() : platform::IncludeTrailingDelim(root);
    if (AsciiLower(folder).rfind(AsciiLower(root), 0) == 0) {
      std::string part = folder.substr(root.size());
      return dest_folder + platform::IncludeTrailingDelim(part) + file;
    }
    return dest_folder + relative + file;
  };

  DestNames names;
  // The one "Thumbnails"/"Folder" serves all five sets; the sets' own folders are not used.
  const std::string thumb_folder =
      thumbnails.folder.empty() ? RootFolder() : platform::IncludeTrailingDelim(thumbnails.folder);
  for (size_t s = 0; s < thumbnail_sets.size(); ++s) {
    const ThumbnailSet& set = thumbnail_sets[s];
    std::string thumb =
        change_case(ParseFileMask(base, set.mask, set.counter + request.index, mask_source));
    names.thumbnails[s] = place(thumb_folder, thumb + "." + ext_case(set.ext));
  }

  std::string result =
      change_case(ParseFileMask(base, mask, file_name.start_number + request.index, mask_source));
  std::string_view dest_ext = main.dest_ext;
  if (const size_t gt = dest_ext.find('>'); gt != std::string_view::npos)
    dest_ext = dest_ext.substr(gt + 1);
  result += "." + ext_case(dest_ext);

  std::string dest_folder;
  if (main.same_as_source) {
    dest_folder = folder;
    if (!request.subfolder.empty())
      dest_folder += platform::IncludeTrailingDelim(request.subfolder);
  } else {
    dest_folder = TrimBlanks(main.dest_path);
  }
  dest_folder = dest_folder.empty() ? RootFolder() : platform::IncludeTrailingDelim(dest_folder);
  names.result = place(dest_folder, result);
  return names;
}

}  // namespace pictavo::settings
