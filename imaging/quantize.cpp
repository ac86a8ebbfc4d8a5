#include "imaging/quantize.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <unordered_set>

#include "imaging/bitmap_rows.h"

namespace pictavo::imaging {

namespace {

constexpr int kBits = 5;  // histogram precision per channel
constexpr int kSide = 1 << kBits;

inline int BinIndex(int r, int g, int b) {
  return ((r >> (8 - kBits)) << (2 * kBits)) | ((g >> (8 - kBits)) << kBits) | (b >> (8 - kBits));
}

struct Bin {
  uint64_t count = 0, r = 0, g = 0, b = 0;
};

struct Box {
  int lo[3], hi[3];
  uint64_t count = 0;
};

void Tighten(Box& box, const std::vector<Bin>& hist) {
  int lo[3] = {kSide, kSide, kSide}, hi[3] = {-1, -1, -1};
  uint64_t count = 0;
  for (int r = box.lo[0]; r <= box.hi[0]; ++r)
    for (int g = box.lo[1]; g <= box.hi[1]; ++g)
      for (int b = box.lo[2]; b <= box.hi[2]; ++b) {
        const uint64_t c = hist[(r << (2 * kBits)) | (g << kBits) | b].count;
        if (!c) continue;
        count += c;
        const int v[3] = {r, g, b};
        for (int k = 0; k < 3; ++k) {
          lo[k] = std::min(lo[k], v[k]);
          hi[k] = std::max(hi[k], v[k]);
        }
      }
  box.count = count;
  if (count == 0) return;
  std::copy(lo, lo + 3, box.lo);
  std::copy(hi, hi + 3, box.hi);
}

// Splits along the longest side at the population median; false when the box is one bin.
bool Split(Box& box, const std::vector<Bin>& hist, Box& other) {
  int axis = 0;
  for (int k = 1; k < 3; ++k)
    if (box.hi[k] - box.lo[k] > box.hi[axis] - box.lo[axis]) axis = k;
  if (box.hi[axis] == box.lo[axis]) return false;
  std::array<uint64_t, kSide> slice{};
  for (int r = box.lo[0]; r <= box.hi[0]; ++r)
    for (int g = box.lo[1]; g <= box.hi[1]; ++g)
      for (int b = box.lo[2]; b <= box.hi[2]; ++b) {
        const int v[3] = {r, g, b};
        slice[v[axis]] += hist[(r << (2 * kBits)) | (g << kBits) | b].count;
      }
  uint64_t acc = 0;
  int cut = box.lo[axis];
  for (int v = box.lo[axis]; v < box.hi[axis]; ++v) {
    acc += slice[v];
    cut = v;
    if (acc * 2 >= box.count) break;
  }
  other = box;
  box.hi[axis] = cut;
  other.lo[axis] = cut + 1;
  Tighten(box, hist);
  Tighten(other, hist);
  return box.count > 0 && other.count > 0;
}

// Nearest palette entry by squared RGB distance, ties to the lowest index (as a plain scan
// would give). Entries are sorted by red and searched outwards from the red of the query,
// stopping once the red difference alone exceeds the best distance.
class NearestSearch {
 public:
  explicit NearestSearch(const std::vector<TRGB>& palette) {
    for (size_t i = 0; i < palette.size(); ++i)
      entries_.push_back({palette[i], static_cast<int>(i)});
    std::sort(entries_.begin(), entries_.end(),
              [](const Entry& a, const Entry& b) { return a.c.r < b.c.r; });
  }
  int Find(int r, int g, int b) const {
    const auto mid = std::lower_bound(entries_.begin(), entries_.end(), r,
                                      [](const Entry& e, int v) { return e.c.r < v; });
    int best = 1 << 30, best_idx = 0;
    auto consider = [&](const Entry& e) {
      const int dr = e.c.r - r, dg = e.c.g - g, db = e.c.b - b;
      const int d = dr * dr + dg * dg + db * db;
      if (d < best || (d == best && e.index < best_idx)) {
        best = d;
        best_idx = e.index;
      }
    };
    for (auto it = mid; it != entries_.end(); ++it) {
      const int dr = it->c.r - r;
      if (dr * dr > best) break;
      consider(*it);
    }
    for (auto it = mid; it != entries_.begin();) {
      --it;
      const int dr = it->c.r - r;
      if (dr * dr > best) break;
      consider(*it);
    }
    return best_idx;
  }

 private:
  struct Entry {
    TRGB c;
    int index;
  };
  std::vector<Entry> entries_;
};

}  // namespace

std::vector<TRGB> BuildPalette(const TIEBitmap& src, int max_colors) {
  max_colors = std::clamp(max_colors, 1, 256);
  if (src.IsEmpty()) return {};
  const int w = src.Width(), h = src.Height();
  std::vector<uint8_t> row(static_cast<size_t>(w) * 3);

  // Few colours: keep them exactly.
  {
    std::unordered_set<uint32_t> seen;
    bool few = true;
    for (int y = 0; y < h && few; ++y) {
      rows::ReadRGB8(src, y, row.data());
      for (int x = 0; x < w; ++x) {
        seen.insert(row[3 * x] | (row[3 * x + 1] << 8) | (row[3 * x + 2] << 16));
        if (static_cast<int>(seen.size()) > max_colors) {
          few = false;
          break;
        }
      }
    }
    if (few) {
      std::vector<uint32_t> sorted(seen.begin(), seen.end());
      std::sort(sorted.begin(), sorted.end());
      std::vector<TRGB> pal;
      for (uint32_t c : sorted)
        pal.push_back(TRGB{static_cast<uint8_t>(c), static_cast<uint8_t>(c >> 8),
                           static_cast<uint8_t>(c >> 16)});
      return pal;
    }
  }

  std::vector<Bin> hist(kSide * kSide * kSide);
  for (int y = 0; y < h; ++y) {
    rows::ReadRGB8(src, y, row.data());
    for (int x = 0; x < w; ++x) {
      Bin& b = hist[BinIndex(row[3 * x], row[3 * x + 1], row[3 * x + 2])];
      ++b.count;
      b.r += row[3 * x];
      b.g += row[3 * x + 1];
      b.b += row[3 * x + 2];
    }
  }
  std::vector<Box> boxes(1);
  boxes[0] = Box{{0, 0, 0}, {kSide - 1, kSide - 1, kSide - 1}, 0};
  Tighten(boxes[0], hist);
  std::vector<bool> done(1, false);
  while (static_cast<int>(boxes.size()) < max_colors) {
    // Split the box with the most pixels times extent: big, spread-out boxes first.
    int best = -1;
    double best_score = 0;
    for (size_t i = 0; i < boxes.size(); ++i) {
      if (done[i]) continue;
      const Box& b = boxes[i];
      const int extent = std::max({b.hi[0] - b.lo[0], b.hi[1] - b.lo[1], b.hi[2] - b.lo[2]});
      const double score = static_cast<double>(b.count) * (extent + 1);
      if (extent > 0 && score > best_score) {
        best_score = score;
        best = static_cast<int>(i);
      }
    }
    if (best < 0) break;
    Box other;
    Box saved = boxes[best];
    if (!Split(boxes[best], hist, other)) {
      boxes[best] = saved;
      done[best] = true;
      continue;
    }
    boxes.push_back(other);
    done.push_back(false);
  }
  std::vector<TRGB> pal;
  for (const Box& box : boxes) {
    uint64_t n = 0, r = 0, g = 0, b = 0;
    for (int ri = box.lo[0]; ri <= box.hi[0]; ++ri)
      for (int gi = box.lo[1]; gi <= box.hi[1]; ++gi)
        for (int bi = box.lo[2]; bi <= box.hi[2]; ++bi) {
          const Bin& bin = hist[(ri << (2 * kBits)) | (gi << kBits) | bi];
          n += bin.count;
          r += bin.r;
          g += bin.g;
          b += bin.b;
        }
    if (n == 0) continue;
    pal.push_back(TRGB{static_cast<uint8_t>((r + n / 2) / n), static_cast<uint8_t>((g + n / 2) / n),
                       static_cast<uint8_t>((b + n / 2) / n)});
  }
  return pal;
}

pictavo::Status MapToPalette(const TIEBitmap& src, const std::vector<TRGB>& palette,
                             TIEDitherMethod dither, TIEBitmap& dst) {
  if (&src == &dst) return pictavo::Status::Error("palette mapping needs a separate target");
  if (palette.empty() || palette.size() > 256)
    return pictavo::Status::Error("palette must have 1 to 256 entries");
  const int w = src.Width(), h = src.Height();
  if (auto st = dst.Allocate(w, h, TIEPixelFormat::ie8p); !st.ok()) return st;
  dst.Palette() = palette;
  if (src.HasAlphaChannel()) {
    dst.AddAlphaChannel(255);
    for (int y = 0; y < h; ++y) std::memcpy(dst.AlphaScanline(y), src.AlphaScanline(y), w);
  }

  const NearestSearch search(palette);
  // Lazily filled exact lookup: one entry per 24-bit colour actually met.
  std::vector<uint8_t> table(size_t{1} << 24);
  std::vector<uint64_t> known((size_t{1} << 24) / 64);
  auto lookup = [&](int r, int g, int b) -> uint8_t {
    const uint32_t key = r | (g << 8) | (b << 16);
    uint64_t& word = known[key >> 6];
    const uint64_t bit = uint64_t{1} << (key & 63);
    if (!(word & bit)) {
      table[key] = static_cast<uint8_t>(search.Find(r, g, b));
      word |= bit;
    }
    return table[key];
  };

  std::vector<uint8_t> row(static_cast<size_t>(w) * 3);
  if (dither == TIEDitherMethod::ieFloydSteinberg) {
    std::vector<int> err_cur(static_cast<size_t>(w + 2) * 3), err_next(err_cur.size());
    for (int y = 0; y < h; ++y) {
      rows::ReadRGB8(src, y, row.data());
      std::fill(err_next.begin(), err_next.end(), 0);
      uint8_t* d = dst.Scanline(y);
      const bool rtl = y & 1;  // serpentine scan avoids directional artefacts
      for (int i = 0; i < w; ++i) {
        const int x = rtl ? w - 1 - i : i;
        const int dir = rtl ? -1 : 1;
        int v[3];
        for (int c = 0; c < 3; ++c)
          v[c] = std::clamp(row[3 * x + c] + (err_cur[3 * (x + 1) + c] + 8) / 16, 0, 255);
        const uint8_t idx = lookup(v[0], v[1], v[2]);
        d[x] = idx;
        const int q[3] = {palette[idx].r, palette[idx].g, palette[idx].b};
        for (int c = 0; c < 3; ++c) {
          const int e = v[c] - q[c];
          err_cur[3 * (x + 1 + dir) + c] += e * 7;
          err_next[3 * (x + 1 - dir) + c] += e * 3;
          err_next[3 * (x + 1) + c] += e * 5;
          err_next[3 * (x + 1 + dir) + c] += e;
        }
      }
      std::swap(err_cur, err_next);
    }
    return pictavo::Status::OK();
  }

  static constexpr uint8_t kBayer[8][8] = {
      {0, 32, 8, 40, 2, 34, 10, 42},  {48, 16, 56, 24, 50, 18, 58, 26},
      {12, 44, 4, 36, 14, 46, 6, 38}, {60, 28, 52, 20, 62, 30, 54, 22},
      {3, 35, 11, 43, 1, 33, 9, 41},  {51, 19, 59, 27, 49, 17, 57, 25},
      {15, 47, 7, 39, 13, 45, 5, 37}, {63, 31, 55, 23, 61, 29, 53, 21}};
  // Ordered dither spreads by about one palette step per channel.
  const double levels = std::max(2.0, std::cbrt(static_cast<double>(palette.size())));
  const double spread = 255.0 / (levels - 1);
  for (int y = 0; y < h; ++y) {
    rows::ReadRGB8(src, y, row.data());
    uint8_t* d = dst.Scanline(y);
    for (int x = 0; x < w; ++x) {
      if (dither == TIEDitherMethod::ieOrdered) {
        // Each channel reads the matrix at another phase, so the offsets are uncorrelated
        // and mixtures form in every direction of the palette, not only along grey.
        auto off = [&](int dx, int dy) {
          return static_cast<int>(
              std::lround(((kBayer[(y + dy) & 7][(x + dx) & 7] + 0.5) / 64.0 - 0.5) * spread));
        };
        d[x] = lookup(std::clamp(row[3 * x] + off(0, 0), 0, 255),
                      std::clamp(row[3 * x + 1] + off(2, 5), 0, 255),
                      std::clamp(row[3 * x + 2] + off(5, 3), 0, 255));
      } else {
        d[x] = lookup(row[3 * x], row[3 * x + 1], row[3 * x + 2]);
      }
    }
  }
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging
