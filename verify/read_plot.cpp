// Plotter files (HP-GL, HP-GL/2) and Windows metafiles (WMF, EMF): their drawing commands.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <optional>

#include "platform/bytes.h"
#include "verify/readers.h"

namespace pictavo::verify {

namespace {

// ---- HP-GL ----------------------------------------------------------------------------------

// Every HP-GL and HP-GL/2 mnemonic; two letters that are none of these are not plotter code.
constexpr std::string_view kMnemonics =
    "AA AC AD AF AH AP AR AS AT BF BL BP BR BZ CA CC CF CI CM CO CP CR CS CT CV DC DF DI DL DP DR "
    "DS DT DV EA EC EP ER ES EW FI FN FP FR FS FT GC GM GP IM IN IP IR IV IW KY LA LB LM LO LT MC "
    "MG MT NP NR OA OC OD OE OF OG OH OI OK OL OO OP OS OT OW PA PB PC PD PE PG PM PR PS PT PU PW "
    "QL RA RF RO RP RR RT SA SB SC SD SG SI SL SM SP SR SS ST SV TD TL TR UC UF UL VS WD WG WU XT "
    "YT";
// Commands that draw whatever the pen state: circles, edges and fills of shapes, polygons.
constexpr std::string_view kAlwaysDraw = "CI EA ER EW RA RR WG EP FP";
// Moves that draw when the pen is down: lines, arcs and Bezier curves.
constexpr std::string_view kPenMoves = "PA PR AA AR AT RT BZ BR";

bool IsMnemonic(std::string_view list, char a, char b) {
  for (size_t i = 0; i + 1 < list.size(); i += 3)
    if (list[i] == a && list[i + 1] == b) return true;
  return false;
}

bool IsLetter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Control bytes other than the usual white space and the label terminator ETX.
bool IsBinaryByte(unsigned char c) {
  return (c < 0x20 && c != '\t' && c != '\n' && c != '\r' && c != '\f' && c != 0x03 && c != 0x1b) ||
         c == 0x7f;
}

// The walk through an HP-GL file and what it has counted so far.
struct HpglScan {
  std::string_view d;
  size_t i = 0;
  char terminator = '\x03';  // ends label text
  bool pen_down = false;
  int64_t drawn = 0, known = 0, binary = 0;

  // Moves past `stop` (or to the end); true when something came before it.
  bool SkipTo(char stop) {
    const size_t start = i;
    while (i < d.size() && d[i] != stop) ++i;
    const bool text = i > start;
    if (i < d.size()) ++i;
    return text;
  }

  // The rest of known command `ab` (its text or parameters), and what it draws.
  void Command(char a, char b) {
    if (a == 'L' && b == 'B') {  // label text, which may hold anything
      if (SkipTo(terminator)) ++drawn;
      return;
    }
    if (a == 'D' && b == 'T') {  // DTc[,mode]: c ends labels from now on; "DT;" restores ETX
      if (i < d.size() && d[i] != ';')
        terminator = d[i++];
      else
        terminator = '\x03';
      return;
    }
    if ((a == 'P' && b == 'E') || (a == 'B' && b == 'L')) {  // encoded data, then ';'
      if (SkipTo(a == 'B' ? terminator : ';') && a == 'P') ++drawn;
      return;
    }
    if (a == 'C' && b == 'O') {  // comment: "quoted", or (non-standard) up to ';'
      while (i < d.size() && d[i] == ' ') ++i;
      if (i < d.size() && d[i] == '"') {
        ++i;
        SkipTo('"');
      } else {
        SkipTo(';');
      }
      return;
    }
    if (a == 'S' && b == 'M') {  // symbol mode: one character, any
      if (i < d.size() && d[i] != ';') ++i;
      return;
    }
    const bool coordinates = Parameters();
    if (a == 'P' && b == 'U') {
      pen_down = false;
    } else if (a == 'P' && b == 'D') {
      pen_down = true;
      if (coordinates) ++drawn;
    } else if (IsMnemonic(kPenMoves, a, b)) {
      if (pen_down && coordinates) ++drawn;
    } else if (a == 'I' && b == 'N') {
      pen_down = false;
    } else if (IsMnemonic(kAlwaysDraw, a, b)) {
      ++drawn;
    }
  }

  // Numbers, signs, separators and quoted strings, up to the next command; true when there
  // were digits.
  bool Parameters() {
    bool coordinates = false;
    while (i < d.size() && !IsLetter(d[i]) && d[i] != ';' && d[i] != '\x1b') {
      if (d[i] == '"') {
        ++i;
        SkipTo('"');
        continue;
      }
      if (std::isdigit(static_cast<unsigned char>(d[i])))
        coordinates = true;
      else if (IsBinaryByte(static_cast<unsigned char>(d[i])))
        ++binary;
      ++i;
    }
    return coordinates;
  }
};

}  // namespace

// Commands are two letters (any case) and parameters up to the next letter or ';'. Labels run to
// the label terminator (ETX unless DT names another), PE data and non-standard comments to ';'.
// The file must begin with a plotter command (after escape sequences and separators), hold no
// run of binary bytes and no unknown mnemonic before its first known one.
void ReadHpgl(const Source& src, Content& out) {
  out.known = true;
  platform::MappedFile map;
  std::string_view d;
  if (!MapFile(src.file, map, d, out)) return;

  HpglScan scan{d};
  size_t& i = scan.i;
  while (i < d.size()) {
    const char c = d[i];
    if (c == '\x1b') {  // PCL or device-control escape: ends at an upper-case letter or ':'
      const size_t limit = std::min(d.size(), i + 64);
      ++i;
      while (i < limit && !(d[i] >= 'A' && d[i] <= 'Z') && d[i] != ':') ++i;
      ++i;
      continue;
    }
    if (!IsLetter(c) || i + 1 >= d.size() || !IsLetter(d[i + 1])) {
      if (IsBinaryByte(static_cast<unsigned char>(c))) ++scan.binary;
      if (scan.known == 0 && !std::isspace(static_cast<unsigned char>(c)) && c != ';' && c != ',')
        return Refuse(out, "not an HP-GL file: it does not begin with a plotter command");
      ++i;
      continue;
    }
    const char a = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    const char b = static_cast<char>(std::toupper(static_cast<unsigned char>(d[i + 1])));
    i += 2;
    if (!IsMnemonic(kMnemonics, a, b)) {
      if (scan.known == 0)
        return Refuse(out, "not an HP-GL file: it does not begin with a plotter command");
      continue;
    }
    ++scan.known;
    scan.Command(a, b);
  }
  CheckNotShrunk(map, out);
  if (!out.opened.ok()) return;
  if (scan.known == 0) return Refuse(out, "not an HP-GL file: no plotter commands");
  // A few stray bytes are tolerated; a file of binary data only looks like commands here and there.
  if (scan.binary * 100 > static_cast<int64_t>(d.size()))
    return Refuse(out, "not an HP-GL file: it holds binary data");
  out.entities = scan.drawn;
}

// ---- Windows metafiles ----------------------------------------------------------------------

namespace {

// GDI records that put something on the page: lines, curves, shapes, regions, bitmaps, text
// (EMR_POLYBEZIER ... EMR_GRADIENTFILL).
constexpr uint32_t kEmfDrawing[] = {2,  3,  4,  5,  6,  7,  8,  15, 41,  42,  43,  44,
                                    45, 46, 47, 53, 54, 55, 56, 62, 63,  64,  71,  72,
                                    73, 74, 76, 77, 78, 79, 80, 81, 83,  84,  85,  86,
                                    87, 88, 89, 90, 91, 92, 96, 97, 108, 114, 116, 118};
// EMF+ drawing records: EmfPlusFillRects ... EmfPlusDrawString, and EmfPlusDrawDriverString.
// EmfPlusClear only paints the background.
bool IsEmfPlusDrawing(uint16_t type) {
  return (type >= 0x400A && type <= 0x401C) || type == 0x4036;
}
// WMF drawing functions: META_ARC, CHORD, ELLIPSE, EXTFLOODFILL, FILLREGION, FLOODFILL,
// FRAMEREGION, INVERTREGION, LINETO, PAINTREGION, PATBLT, PIE, POLYGON, POLYLINE, POLYPOLYGON,
// RECTANGLE, ROUNDRECT, SETPIXEL, TEXTOUT, EXTTEXTOUT, BITBLT, DIBBITBLT, STRETCHBLT,
// DIBSTRETCHBLT, STRETCHDIB, SETDIBTODEV.
constexpr uint16_t kWmfDrawing[] = {0x0817, 0x0830, 0x0418, 0x0548, 0x0228, 0x0419, 0x0429,
                                    0x012A, 0x0213, 0x012B, 0x061D, 0x081A, 0x0324, 0x0325,
                                    0x0538, 0x041B, 0x061C, 0x041F, 0x0521, 0x0A32, 0x0922,
                                    0x0940, 0x0B23, 0x0B41, 0x0F43, 0x0D33};

template <typename T, size_t N, typename V>
bool Among(const T (&list)[N], V value) {
  return std::find(list, list + N, value) != list + N;
}

// `d` holds at least the 44 bytes up to the " EMF" signature.
void ReadEmf(std::string_view d, Content& out) {
  if (d.size() < 88) return Refuse(out, "cut short: the EMF header is incomplete");
  int64_t gdi = 0, plus = 0;
  bool eof = false;
  for (size_t at = 0; !eof;) {
    if (d.size() - at < 8)
      return Refuse(out, "cut short: the EMF ends without its end-of-file record");
    const uint32_t type = platform::LoadLe32(d, at), size = platform::LoadLe32(d, at + 4);
    if (size < 8 || size % 4 != 0 || size > d.size() - at) {
      // The header's nBytes gives the whole size, telling a lost end from a wrong record.
      out.opened = Status::Error(platform::LoadLe32(d, 48) > d.size()
                                     ? "cut short: the EMF is shorter than its header says"
                                     : "damaged: an EMF record has an impossible size");
      return;
    }
    if (at == 0 && type != 1) return Refuse(out, "not an EMF file: no header record");
    eof = type == 14;
    if (Among(kEmfDrawing, type)) ++gdi;
    // EMR_COMMENT holding EMF+ records: DataSize, "EMF+", then records of 12-byte headers.
    if (type == 70 && size >= 16 && platform::LoadLe32(d, at + 12) == 0x2B464D45) {
      const size_t end = at + 8 + std::min<size_t>(platform::LoadLe32(d, at + 8), size - 8);
      for (size_t p = at + 16; p + 12 <= end;) {
        const uint16_t plus_type = platform::LoadLe16(d, p);
        const uint32_t plus_size = platform::LoadLe32(d, p + 4);
        if (plus_size < 12 || plus_size > end - p) break;
        if (IsEmfPlusDrawing(plus_type)) ++plus;
        p += plus_size;
      }
    }
    at += size;
  }
  out.entities = std::max(gdi, plus);
}

void ReadWmf(std::string_view d, Content& out) {
  size_t at = 0;
  if (d.size() >= 22 && platform::LoadLe32(d, 0) == 0x9AC6CDD7) at = 22;  // the placeable header
  if (d.size() - at < 18 || (platform::LoadLe16(d, at) != 1 && platform::LoadLe16(d, at) != 2) ||
      platform::LoadLe16(d, at + 2) != 9)
    return Refuse(out, "not a WMF file: no metafile header");
  const uint64_t declared = uint64_t{platform::LoadLe32(d, at + 6)} * 2 + (at == 22 ? 22 : 0);
  at += 18;
  int64_t drawn = 0;
  for (;;) {
    if (d.size() - at < 6)
      return Refuse(out, "cut short: the WMF ends without its end-of-file record");
    const uint64_t size = uint64_t{platform::LoadLe32(d, at)} * 2;  // in 16-bit words
    const uint16_t function = platform::LoadLe16(d, at + 4);
    if (function == 0) break;  // META_EOF
    if (size < 6 || size > d.size() - at) {
      // The header gives the whole size: a file shorter than that lost its end; otherwise the
      // record itself is wrong (libwmf gives up on such files too).
      out.opened =
          Status::Error(declared > d.size() ? "cut short: the WMF is shorter than its header says"
                                            : "damaged: a WMF record has an impossible size");
      return;
    }
    if (Among(kWmfDrawing, function)) ++drawn;
    at += size;
  }
  out.entities = drawn;
}

}  // namespace

void ReadMetafile(const Source& src, Content& out) {
  out.known = true;
  const std::optional<std::string> bytes = ReadWholeByContent(src, out);
  if (!bytes) return;
  const std::string_view d = *bytes;
  // By content: EMF has " EMF" at offset 40 of its header record.
  if (d.size() >= 44 && d.substr(40, 4) == " EMF")
    ReadEmf(d, out);
  else if (src.ext == "emf" || src.ext == "emz")
    out.opened = Status::Error("not an EMF file: no EMF header");
  else
    ReadWmf(d, out);
}

}  // namespace pictavo::verify
