// DXF drawings, ASCII and binary: entity counts, the blocks that INSERTs reach, and the layers of
// the ENTITIES section.
#include <cstring>
#include <map>
#include <set>
#include <vector>

#include "verify/readers.h"

namespace pictavo::verify {

namespace {

constexpr std::string_view kBinarySentinel("AutoCAD Binary DXF\r\n\x1a\0", 22);

// The group code/value pairs of a DXF file, ASCII or binary. Only string values are returned;
// numeric ones come back empty, since nothing here needs them.
class GroupReader {
 public:
  explicit GroupReader(std::string_view d) : d_(d) {
    if (d_.substr(0, kBinarySentinel.size()) == kBinarySentinel) {
      binary_ = true;
      at_ = kBinarySentinel.size();
      // R12 writes one-byte codes, so the first pair is 00 "SECTION"; later versions write two
      // bytes, 00 00 "SECTION".
      wide_codes_ = at_ + 1 < d_.size() && d_[at_ + 1] == '\0';
    } else if (d_.substr(0, 3) == "\xEF\xBB\xBF") {
      at_ = 3;
    }
  }

  // False at the end of the data, or with error() set when the data is malformed.
  bool Next(int& code, std::string_view& value) {
    return binary_ ? NextBinary(code, value) : NextText(code, value);
  }
  const std::string& error() const { return error_; }

 private:
  std::string_view Line() {
    size_t end = d_.find('\n', at_);
    if (end == std::string_view::npos) end = d_.size();
    std::string_view line = d_.substr(at_, end - at_);
    at_ = end + 1;
    ++line_;
    return line;
  }

  bool NextText(int& code, std::string_view& value) {
    while (at_ < d_.size()) {
      const std::string_view code_line = TrimBlanks(Line());
      if (code_line.empty() && at_ >= d_.size()) return false;  // the final line break
      const std::optional<int64_t> n = LeadingInteger(code_line);
      if (!n || code_line.find_first_not_of("-+0123456789") != std::string_view::npos) {
        error_ = "line " + std::to_string(line_) + " is not a group code";
        return false;
      }
      if (at_ >= d_.size()) {
        error_ = "cut short: the last group code has no value";
        return false;
      }
      code = static_cast<int>(*n);
      value = TrimBlanks(Line());
      return true;
    }
    return false;
  }

  bool Need(size_t bytes) {
    if (d_.size() - at_ >= bytes) return true;
    error_ = "cut short: the binary data ends inside a value";
    return false;
  }

  bool NextBinary(int& code, std::string_view& value) {
    if (at_ >= d_.size()) return false;
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(d_[i]); };
    if (wide_codes_) {
      if (!Need(2)) return false;
      code = byte(at_) | (byte(at_ + 1) << 8);
      at_ += 2;
    } else if (byte(at_) == 255) {  // an extended code follows in two bytes
      if (!Need(3)) return false;
      code = byte(at_ + 1) | (byte(at_ + 2) << 8);
      at_ += 3;
    } else {
      code = byte(at_++);
    }
    value = std::string_view();
    size_t size = 0;
    if ((code >= 10 && code <= 59) || (code >= 110 && code <= 149) ||
        (code >= 210 && code <= 239) || (code >= 460 && code <= 469) ||
        (code >= 1010 && code <= 1059) || (code >= 160 && code <= 169)) {
      size = 8;  // doubles; 160-169 are 64-bit integers
    } else if ((code >= 60 && code <= 79) || (code >= 170 && code <= 179) ||
               (code >= 270 && code <= 289) || (code >= 370 && code <= 389) ||
               (code >= 400 && code <= 409) || (code >= 1060 && code <= 1070)) {
      size = 2;
    } else if ((code >= 90 && code <= 99) || (code >= 420 && code <= 429) ||
               (code >= 440 && code <= 459) || code == 1071) {
      size = 4;
    } else if (code >= 290 && code <= 299) {
      size = 1;
    } else if ((code >= 310 && code <= 319) || code == 1004) {
      if (!Need(1)) return false;
      size = 1 + byte(at_);
    } else {  // a string ending with a zero byte
      const size_t end = d_.find('\0', at_);
      if (end == std::string_view::npos) {
        error_ = "cut short: the binary data ends inside a string";
        return false;
      }
      value = d_.substr(at_, end - at_);
      at_ = end + 1;
      return true;
    }
    if (!Need(size)) return false;
    at_ += size;
    return true;
  }

  std::string_view d_;
  size_t at_ = 0;
  size_t line_ = 0;
  bool binary_ = false;
  bool wide_codes_ = false;
  std::string error_;
};

// Parts of a parent entity or templates, not drawn on their own.
bool IsSubEntity(std::string_view type) {
  return type == "VERTEX" || type == "SEQEND" || type == "ATTRIB" || type == "ATTDEF";
}

struct Block {
  int64_t entities = 0;
  std::vector<std::string> inserts;
};

using Blocks = std::map<std::string, Block, std::less<>>;

// The entities of the blocks that `inserts` reach, directly or through nested blocks, each block
// counted once however often it is inserted.
int64_t ReachedEntities(const std::vector<std::string>& inserts, const Blocks& blocks) {
  int64_t total = 0;
  std::set<std::string, std::less<>> reached;
  std::vector<std::string> pending = inserts;
  while (!pending.empty()) {
    std::string name = std::move(pending.back());
    pending.pop_back();
    const auto it = blocks.find(name);
    if (it == blocks.end() || !reached.insert(name).second) continue;
    total += it->second.entities;
    pending.insert(pending.end(), it->second.inserts.begin(), it->second.inserts.end());
  }
  return total;
}

}  // namespace

void ReadDxf(const Source& src, Content& out) {
  out.known = true;
  platform::MappedFile map;
  std::string_view d;
  if (!MapFile(src.file, map, d, out)) return;
  GroupReader groups(d);

  enum class Where { kNone, kEntities, kBlocks, kOther };
  Where where = Where::kNone;
  bool first = true, want_section_name = false, eof = false;
  int64_t top_entities = 0;
  std::vector<std::string> top_inserts;
  Blocks blocks;
  Block* block = nullptr;        // the block being read
  bool want_block_name = false;  // group 2 of the BLOCK entry names it
  // Which groups of the entity being read still matter.
  bool want_layer = false, want_insert_name = false;
  std::map<std::string, size_t, std::less<>> layer_index;

  int code = 0;
  std::string_view value;
  while (!eof && groups.Next(code, value)) {
    if (code == 999) continue;  // comment
    if (first) {
      if (code != 0 || value != "SECTION") return Refuse(out, "not a DXF file: no SECTION");
      first = false;
    }
    if (code == 0) {
      want_layer = want_insert_name = want_block_name = false;
      if (value == "EOF") {
        eof = true;
      } else if (value == "SECTION") {
        want_section_name = true;
        where = Where::kOther;
      } else if (value == "ENDSEC") {
        where = Where::kNone;
      } else if (where == Where::kBlocks && value == "BLOCK") {
        want_block_name = true;
        block = nullptr;
      } else if (where == Where::kBlocks && value == "ENDBLK") {
        block = nullptr;
      } else if ((where == Where::kEntities || (where == Where::kBlocks && block)) &&
                 !IsSubEntity(value)) {
        want_insert_name = value == "INSERT";
        if (where == Where::kEntities) {
          ++top_entities;
          want_layer = true;
        } else {
          ++block->entities;
        }
      }
      continue;
    }
    if (want_section_name && code == 2) {
      want_section_name = false;
      where = value == "ENTITIES" ? Where::kEntities
              : value == "BLOCKS" ? Where::kBlocks
                                  : Where::kOther;
    } else if (want_block_name && code == 2) {
      want_block_name = false;
      block = &blocks[std::string(value)];
    } else if (want_insert_name && code == 2) {
      want_insert_name = false;
      (where == Where::kEntities ? top_inserts : block->inserts).emplace_back(value);
    } else if (want_layer && code == 8) {
      want_layer = false;
      auto [it, added] = layer_index.try_emplace(std::string(value), out.layers.size());
      if (added) out.layers.push_back(LayerCount{std::string(value), 0, std::string()});
      ++out.layers[it->second].features;
    }
  }
  CheckNotShrunk(map, out);
  if (!out.opened.ok()) return;
  if (!groups.error().empty()) {
    const std::string& why = groups.error();
    out.opened = Status::Error(why.rfind("cut short", 0) == 0 ? why : "not a DXF file: " + why);
    out.layers.clear();
    return;
  }
  if (first) return Refuse(out, "not a DXF file: no SECTION");
  if (!eof) {
    out.opened = Status::Error("cut short: no EOF at the end of the DXF");
    out.layers.clear();
    return;
  }

  out.entities = top_entities + ReachedEntities(top_inserts, blocks);
}

}  // namespace pictavo::verify
