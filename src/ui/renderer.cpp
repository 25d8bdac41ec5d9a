#include "ui/renderer.hpp"

#include <tavrel_sdk/ui/application.hpp>

#include "ui/cairo_support.hpp"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstring>
#include <limits>
#include <typeinfo>
#include <unordered_map>

namespace tavrel {

namespace {

// More rectangles clip more tightly but cost a pass of Cairo's clipping each.
constexpr std::size_t kMaxDamageRects = 4;

bool isDrawn(const UIView& view) { return !view.isHidden() && view.alpha() > 0.0; }

// Plain views and windows draw nothing of their own; any subclass may.
bool mayDrawContent(const UIView& view) { return typeid(view) != typeid(UIView) && typeid(view) != typeid(UIWindow); }

bool hasBackground(const UIView& view) { return view.backgroundColor() && view.backgroundColor()->alpha() > 0.0; }

bool hasBorder(const UIView& view) {
  const auto color = view.layer().borderColor();
  return view.layer().borderWidth() > 0.0 && color && color->alpha > 0.0;
}

void collect(const UIView& view, CGPoint origin, CGRect clip, double alpha, std::vector<RenderEntry>& out) {
  if (!isDrawn(view)) return;
  const std::size_t index = out.size();
  const CGRect bounds = view.bounds();
  RenderEntry entry;
  entry.view = &view;
  entry.displayVersion = view.displayVersion();
  entry.layerVersion = view.layerVersion();
  entry.rect = CGRectIntersection({origin, bounds.size}, clip);
  entry.contentOrigin = {origin.x - bounds.origin.x, origin.y - bounds.origin.y};
  entry.clip = clip;
  entry.alpha = alpha * std::min(view.alpha(), 1.0);
  const CGRect childClip = view.layer().masksToBounds() ? entry.rect : clip;
  const CGPoint contentOrigin = entry.contentOrigin;
  const double childAlpha = entry.alpha;
  out.push_back(std::move(entry));

  for (const auto& subview : view.subviews()) {
    const CGRect frame = subview->frame();
    collect(*subview, {contentOrigin.x + frame.origin.x, contentOrigin.y + frame.origin.y}, childClip, childAlpha, out);
  }
  RenderEntry& self = out[index];
  self.subtreeEnd = out.size();
  self.subtreeRect = self.rect;
  for (std::size_t child = index + 1; child < out.size(); child = out[child].subtreeEnd) {
    self.subtreeRect = CGRectUnion(self.subtreeRect, out[child].subtreeRect);
  }
}

PixelRect intersection(const PixelRect& a, const PixelRect& b) {
  const int left = std::max(a.x, b.x), top = std::max(a.y, b.y);
  return {left, top, std::min(a.x + a.width, b.x + b.width) - left, std::min(a.y + a.height, b.y + b.height) - top};
}

bool isEmpty(const PixelRect& r) { return r.width <= 0 || r.height <= 0; }

// The pixels to draw again, as a few rectangles.
class Damage {
 public:
  // `rects`: a list whose memory the damage takes.
  Damage(int width, int height, double scale, std::vector<PixelRect> rects = {})
      : width_(width), height_(height), scale_(scale), rects_(std::move(rects)) {
    rects_.clear();
  }

  void addWhole() { rects_ = {{0, 0, width_, height_}}; }
  void add(PixelRect pixels) {
    if (!isEmpty(pixels)) rects_.push_back(pixels);
  }
  void add(CGRect points) { add(toPixels(points)); }
  bool touches(CGRect points) const {
    const PixelRect p = toPixels(points);
    return std::any_of(rects_.begin(), rects_.end(), [&](const PixelRect& r) { return overlap(p, r); });
  }
  bool empty() const { return rects_.empty(); }
  Damage emptyLike() const { return {width_, height_, scale_}; }
  const std::vector<PixelRect>& rects() const { return rects_; }
  std::vector<PixelRect> take() && { return std::move(rects_); }

  // Whole pixels covering the rectangle, one more on each side for antialiased edges.
  PixelRect toPixels(CGRect points) const {
    if (points.isEmpty()) return {};
    const int left = std::max(0, static_cast<int>(std::floor(points.minX() * scale_)) - 1);
    const int top = std::max(0, static_cast<int>(std::floor(points.minY() * scale_)) - 1);
    const int right = std::min(width_, static_cast<int>(std::ceil(points.maxX() * scale_)) + 1);
    const int bottom = std::min(height_, static_cast<int>(std::ceil(points.maxY() * scale_)) + 1);
    if (right <= left || bottom <= top) return {};
    return {left, top, right - left, bottom - top};
  }
  static bool overlap(const PixelRect& a, const PixelRect& b) {
    return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height && b.y < a.y + a.height;
  }
  static PixelRect unite(const PixelRect& a, const PixelRect& b) {
    const int left = std::min(a.x, b.x), top = std::min(a.y, b.y);
    return {left, top, std::max(a.x + a.width, b.x + b.width) - left, std::max(a.y + a.height, b.y + b.height) - top};
  }

  // Merges overlapping rectangles, then the pairs that waste least until few are left. None
  // overlap afterwards: a host may copy each once (a Vulkan copy's regions must not overlap).
  void simplify() {
    mergeOverlapping();
    while (rects_.size() > kMaxDamageRects) {
      std::size_t bestI = 0, bestJ = 1;
      long long bestWaste = std::numeric_limits<long long>::max();
      for (std::size_t i = 0; i < rects_.size(); ++i) {
        for (std::size_t j = i + 1; j < rects_.size(); ++j) {
          const long long waste = area(unite(rects_[i], rects_[j])) - area(rects_[i]) - area(rects_[j]);
          if (waste < bestWaste) bestWaste = waste, bestI = i, bestJ = j;
        }
      }
      mergeInto(bestI, bestJ);
      mergeOverlapping();  // the pair's union may reach a third
    }
  }

 private:
  void mergeOverlapping() {
    for (bool merged = true; merged;) {
      merged = false;
      for (std::size_t i = 0; i < rects_.size() && !merged; ++i) {
        for (std::size_t j = i + 1; j < rects_.size() && !merged; ++j) {
          if (overlap(rects_[i], rects_[j])) {
            mergeInto(i, j);
            merged = true;
          }
        }
      }
    }
  }
  static long long area(const PixelRect& r) { return static_cast<long long>(r.width) * r.height; }
  void mergeInto(std::size_t i, std::size_t j) {
    rects_[i] = unite(rects_[i], rects_[j]);
    rects_.erase(rects_.begin() + static_cast<std::ptrdiff_t>(j));
  }

  int width_, height_;
  double scale_;
  std::vector<PixelRect> rects_;
};

using OldIndex = std::vector<std::pair<const UIView*, std::size_t>>;

// The last frame's entry of `view` in `oldIndex` (sorted), else its end.
OldIndex::iterator findOld(OldIndex& oldIndex, const UIView* view) {
  const auto found = std::lower_bound(oldIndex.begin(), oldIndex.end(), std::pair(view, std::size_t{0}));
  return found != oldIndex.end() && found->first == view ? found : oldIndex.end();
}

// Where the pixels `ink` of the store of `entry`'s view lie on the frame. The painter lays a
// store on the nearest whole pixel, computed in its own order: where a half pixel leaves that
// in doubt, both.
PixelRect inkOnFrame(const RenderEntry& entry, const PixelRect& ink, double scale, const Damage& damage) {
  const CGPoint origin = entry.view->bounds().origin;
  const auto span = [](double at, int from, int length) {
    constexpr double kDoubt = 1e-6;
    const int first = static_cast<int>(std::round(at - kDoubt)), last = static_cast<int>(std::round(at + kDoubt));
    return std::pair(first + from, last - first + length);
  };
  const auto [x, width] = span((entry.contentOrigin.x + origin.x) * scale, ink.x, ink.width);
  const auto [y, height] = span((entry.contentOrigin.y + origin.y) * scale, ink.y, ink.height);
  return intersection({x, y, width, height}, damage.toPixels(entry.rect));
}

// Old and new rectangles of every view that appeared, went, changed or moved in the stacking.
// `died`: how many views died since `before` was taken (all of them kept by viewTreeChanges()).
void diff(const std::vector<RenderEntry>& before, const std::vector<RenderEntry>& now, std::uint64_t died,
          const BackingStores& stores, double scale, Damage& damage, FrameBuffers& buffers) {
  auto& oldIndex = buffers.oldIndex;
  oldIndex.clear();
  for (std::size_t i = 0; i < before.size(); ++i) oldIndex.emplace_back(before[i].view, i);
  std::sort(oldIndex.begin(), oldIndex.end());
  // A dead view's entry is no one's now, even where another view took its address.
  const ViewTreeChanges& changes = viewTreeChanges();
  for (std::uint64_t n = changes.deaths - died; n < changes.deaths; ++n) {
    const auto found = findOld(oldIndex, changes.died[n % ViewTreeChanges::kDeathsKept]);
    if (found != oldIndex.end()) oldIndex.erase(found);
  }
  auto& matched = buffers.matched;
  matched.assign(before.size(), false);
  std::size_t latestOld = 0;
  for (const RenderEntry& entry : now) {
    const auto found = findOld(oldIndex, entry.view);
    if (found == oldIndex.end()) {
      damage.add(entry.rect);
      continue;
    }
    const RenderEntry& old = before[found->second];
    matched[found->second] = true;
    // A view now painted over one it used to lie under changes where the two overlap,
    // which lies within its rectangle.
    const bool restacked = found->second < latestOld;
    latestOld = std::max(latestOld, found->second);
    if (restacked || !entry.sitsSame(old)) {
      // A view that draws only what it keeps and shows the same changes no pixel beyond its
      // ink: a label's lines above and below its text stay transparent.
      const std::optional<PixelRect> ink =
          entry.layerVersion != old.layerVersion || hasBackground(*entry.view) || hasBorder(*entry.view)
              ? std::nullopt
              : stores.inkOf(*entry.view);
      if (ink) {
        damage.add(inkOnFrame(old, *ink, scale, damage));
        damage.add(inkOnFrame(entry, *ink, scale, damage));
      } else {
        damage.add(old.rect);
        damage.add(entry.rect);
      }
    } else if (entry.layerVersion != old.layerVersion) {
      damage.add(entry.rect);
    } else if (entry.displayVersion != old.displayVersion) {
      const std::optional<CGRect> part = entry.view->displayChangeSince(old.displayVersion);
      damage.add(part ? CGRectIntersection({{part->origin.x + entry.contentOrigin.x, part->origin.y + entry.contentOrigin.y},
                                            part->size},
                                           entry.rect)
                      : entry.rect);
    }
  }
  for (std::size_t i = 0; i < before.size(); ++i) {
    if (!matched[i]) damage.add(before[i].rect);
  }
}

// The smallest rectangle holding every pixel of `surface` that is not transparent
// (premultiplied, so all of its bits are zero).
PixelRect inkedPixels(cairo_surface_t* surface) {
  const int width = cairo_image_surface_get_width(surface), height = cairo_image_surface_get_height(surface);
  const std::ptrdiff_t stride = cairo_image_surface_get_stride(surface) / 4;
  const auto* pixels = reinterpret_cast<const std::uint32_t*>(cairo_image_surface_get_data(surface));
  const auto inked = [](std::uint32_t pixel) { return pixel != 0; };
  int left = width, top = height, right = 0, bottom = 0;
  for (int y = 0; y < height; ++y) {
    const std::uint32_t* row = pixels + y * stride;
    const std::uint32_t* first = std::find_if(row, row + width, inked);
    if (first == row + width) continue;
    const std::uint32_t* last =
        std::find_if(std::make_reverse_iterator(row + width), std::make_reverse_iterator(first), inked).base();
    left = std::min(left, static_cast<int>(first - row));
    right = std::max(right, static_cast<int>(last - row));
    top = std::min(top, y);
    bottom = y + 1;
  }
  return top < bottom ? PixelRect{left, top, right - left, bottom - top} : PixelRect{};
}

// Whether drawRect of `view`'s class draws anything of its own: tried once on a pixel.
bool probeDrawsContent(UIView& view) {
  cairo_surface_t* pixel = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1, 1);
  cairo_t* cr = cairo_create(pixel);
  baseDrawRectReached() = false;
  view.drawRect(cr, view.bounds());
  cairo_destroy(cr);
  cairo_surface_destroy(pixel);
  return !baseDrawRectReached();
}

// Cairo's own rounding of a colour to 8-bit premultiplied levels, so that a rectangle of one
// colour laid by a layer host comes out as Cairo fills it.
std::uint32_t premultiplied(const CGColorRef& color) {
  const auto level = [](double value) {
    return static_cast<std::uint32_t>(static_cast<std::uint16_t>(std::clamp(value, 0.0, 1.0) * 65535.0 + 0.5) >> 8);
  };
  const double alpha = std::clamp(color.alpha, 0.0, 1.0);
  return level(alpha) << 24 | level(color.red * alpha) << 16 | level(color.green * alpha) << 8 | level(color.blue * alpha);
}

// What a subtree's entries look like, as one number: a flattened subtree is drawn again when it
// changes (never 0, which stands for "not drawn").
std::uint64_t lookOf(const std::vector<RenderEntry>& entries, std::size_t index) {
  std::uint64_t look = 1469598103934665603ull;
  const auto mix = [&](auto value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof value);
    look = (look ^ bits) * 1099511628211ull;
  };
  for (std::size_t i = index; i < entries[index].subtreeEnd; ++i) {
    const RenderEntry& e = entries[i];
    mix(e.view), mix(e.displayVersion), mix(e.layerVersion), mix(e.alpha), mix(e.subtreeEnd - index);
    for (const CGRect& r : {e.rect, e.clip}) mix(r.origin.x), mix(r.origin.y), mix(r.size.width), mix(r.size.height);
    mix(e.contentOrigin.x), mix(e.contentOrigin.y);
  }
  return look | 1;
}

// The pixels a plain rectangle of the current user space covers, when its edges fall on whole
// device pixels (Cairo fills it then with no blended edge).
std::optional<PixelRect> wholePixels(double left, double top, double width, double height) {
  const auto whole = [](double v) { return std::abs(v) < 1e9 && v == std::floor(v); };
  if (!whole(left) || !whole(top) || !whole(width) || !whole(height)) return std::nullopt;
  return PixelRect{static_cast<int>(left), static_cast<int>(top), static_cast<int>(width), static_cast<int>(height)};
}

// A set of pixels, as pixman keeps it.
class Region {
 public:
  Region() { pixman_region32_init(&region_); }
  explicit Region(const PixelRect& r) {
    pixman_region32_init_rect(&region_, r.x, r.y, static_cast<unsigned>(r.width), static_cast<unsigned>(r.height));
  }
  Region(const Region&) = delete;
  Region& operator=(const Region&) = delete;
  ~Region() { pixman_region32_fini(&region_); }
  pixman_region32_t* get() { return &region_; }
  template <class F>
  void forEach(F&& f) const {
    int count = 0;
    const pixman_box32_t* boxes = pixman_region32_rectangles(&region_, &count);
    for (int i = 0; i < count; ++i)
      f(PixelRect{boxes[i].x1, boxes[i].y1, boxes[i].x2 - boxes[i].x1, boxes[i].y2 - boxes[i].y1});
  }

 private:
  pixman_region32_t region_;
};

// Calls `f` with each non-empty band of `outer` around `inner`, which lies within it.
template <class F>
void eachAround(const PixelRect& outer, const PixelRect& inner, F&& f) {
  const int innerBottom = inner.y + inner.height, innerRight = inner.x + inner.width;
  for (const PixelRect& band : {PixelRect{outer.x, outer.y, outer.width, inner.y - outer.y},
                                PixelRect{outer.x, innerBottom, outer.width, outer.y + outer.height - innerBottom},
                                PixelRect{outer.x, inner.y, inner.x - outer.x, inner.height},
                                PixelRect{innerRight, inner.y, outer.x + outer.width - innerRight, inner.height}}) {
    if (!isEmpty(band)) f(band);
  }
}

// The surface's pixels as pixman takes them.
pixman_image_t* imageOf(cairo_surface_t* surface) {
  return pixman_image_create_bits(PIXMAN_a8r8g8b8, cairo_image_surface_get_width(surface),
                                  cairo_image_surface_get_height(surface),
                                  reinterpret_cast<std::uint32_t*>(cairo_image_surface_get_data(surface)),
                                  cairo_image_surface_get_stride(surface));
}

// One walk of the tree in paint order, for both kinds of frame: it lays the views' pixels
// down where the damage reaches, or, given `layers`, lists every visible view's pieces there,
// laying down on the CPU only a subtree that quads cannot show (flatten()).
//
// User space is the screen's points scaled, moved by each view's origin; the walk keeps the
// moves itself, in Cairo's order of operations, so a point lands on the pixel Cairo would put
// it on. Cairo draws only what needs it (text is in the stores already): on the CPU frame, kept
// pixels and plain rectangles on whole pixels are laid straight into the frame's pixels.
class Painter {
 public:
  // `device`: where user space's origin lies on `cr`'s surface, in its pixels.
  Painter(cairo_t* cr, const std::vector<RenderEntry>& entries, const Damage& damage, BackingStores& stores,
          double scale, UILayerFrame* layers = nullptr, std::size_t first = 0, PixelRect offset = {},
          CGPoint device = {})
      : cr_(cr), entries_(entries), damage_(damage), stores_(stores), scale_(scale), layers_(layers), next_(first),
        offset_(offset), dx_(device.x), dy_(device.y) {}
  Painter(const Painter&) = delete;
  Painter& operator=(const Painter&) = delete;
  ~Painter() {
    if (ownsContext_) cairo_destroy(cr_);
  }

  // Paints the CPU frame into `surface`, whose pixels `image` holds. The damage is not cleared
  // first: the first piece to reach a pixel of it writes it whole (a copy, not a blend over
  // pixels just cleared), and what no piece reached is cleared at the end. `painted`: a list
  // whose memory the painter takes, given back by finish().
  void into(cairo_surface_t* surface, pixman_image_t* image, std::vector<PixelRect> painted) {
    painted_ = std::move(painted);
    painted_.clear();
    // Cairo takes a new surface for clear and would copy where it should blend.
    cairo_surface_mark_dirty(surface);
    surface_ = surface;
    image_ = image;
    for (const PixelRect& r : damage_.rects())
      pixman_region32_union_rect(damaged_.get(), damaged_.get(), r.x, r.y, r.width, r.height);
    pixman_region32_copy(unreached_.get(), damaged_.get());
  }
  // Clears what no piece reached; the surface's pixels are final.
  std::vector<PixelRect> finish() {
    clearDamage();
    if (ownsContext_) cairo_destroy(cr_);
    ownsContext_ = false;
    cr_ = nullptr;
    if (surface_) cairo_surface_mark_dirty(surface_);
    return std::move(painted_);
  }

  void paint(const UIView& view) {
    if (!isDrawn(view)) return;
    assert(next_ < entries_.size() && entries_[next_].view == &view);
    const RenderEntry& entry = entries_[next_];
    if (!layers_ && !damage_.touches(entry.subtreeRect)) {
      next_ = entry.subtreeEnd;
      return;
    }
    const std::size_t index = next_++;
    const bool drawSelf = layers_ || damage_.touches(entry.rect);
    const bool hasChildren = entry.subtreeEnd > next_;
    const bool background = hasBackground(view), border = hasBorder(view), content = mayDrawContent(view);
    const double alpha = std::min(view.alpha(), 1.0);
    // A group only when one alpha must cover overlapping parts; else each part takes it.
    const bool group = alpha < 1.0 && (hasChildren || content || background + border > 1);
    const double partAlpha = group ? 1.0 : alpha;
    const CGRect frame = view.frame();
    const CGRect local{{0.0, 0.0}, frame.size};
    const double radius = view.layer().cornerRadius();
    if (layers_ && (group || border || (radius > 0.0 && view.layer().masksToBounds()) ||
                    (background && radius > 0.0 && !stores_.backgroundFor(view, scale_)))) {
      flatten(view, index);
      return;
    }
    clip_ = &entry.clip;

    const double superX = dx_, superY = dy_;
    translate(frame.origin.x, frame.origin.y);
    if (group) {
      cairo_push_group(context());
      ++cairoOnly_;
    }
    if (drawSelf && background) {
      // A plain rectangle fills fast; a rounded one is drawn once and copied after.
      const BackingStore* kept = radius > 0.0 ? stores_.backgroundFor(view, scale_) : nullptr;
      if (kept) {
        composite(*kept, {0.0, 0.0}, partAlpha);
      } else if (layers_) {
        layDown(nullptr, local, premultiplied(view.backgroundColor()->CGColor()), partAlpha);
      } else {
        fill(local, radius, view.backgroundColor()->CGColor(), partAlpha);
        painted_.push_back(damage_.toPixels(entry.rect));
      }
    }
    const bool clips = view.layer().masksToBounds() && !layers_;  // a layer's clip is its entry's
    if (clips) {
      cairo_t* cr = context();
      if (!group) cairo_save(cr);
      roundedRectPath(cr, local, radius);
      cairo_clip(cr);
      ++cairoOnly_;
    }
    const double frameX = dx_, frameY = dy_;
    const CGRect bounds = view.bounds();
    translate(-bounds.origin.x, -bounds.origin.y);
    if (drawSelf && content) {
      if (const BackingStore* store = stores_.storeFor(const_cast<UIView&>(view), scale_)) {
        composite(*store, bounds.origin, partAlpha);
      }
    }
    for (const auto& subview : view.subviews()) paint(*subview);
    dx_ = frameX, dy_ = frameY;
    if (drawSelf && border) {
      cairo_t* cr = context();
      const double width = view.layer().borderWidth();
      const CGRect inset{{width / 2.0, width / 2.0}, {frame.size.width - width, frame.size.height - width}};
      roundedRectPath(cr, inset, std::max(0.0, radius - width / 2.0));
      cairo_set_line_width(cr, width);
      setSourceColor(cr, *view.layer().borderColor(), partAlpha);
      cairo_stroke(cr);
      painted_.push_back(damage_.toPixels(entry.rect));
    }
    if (group) {
      cairo_t* cr = context();
      cairo_pop_group_to_source(cr);  // and the clip with it
      cairo_paint_with_alpha(cr, alpha);
    } else if (clips) {
      cairo_restore(cr_);
    }
    cairoOnly_ -= static_cast<int>(group) + static_cast<int>(clips);
    dx_ = superX, dy_ = superY;
  }

 private:
  // As cairo_translate() moves the matrix's origin.
  void translate(double x, double y) {
    dx_ = x * scale_ + dx_;
    dy_ = y * scale_ + dy_;
  }

  // Cairo, for what only it draws: on the CPU frame, made at its first use, clipped to the
  // damage, which it may blend into, so the damage is cleared first.
  cairo_t* context() {
    if (!cr_) {
      cr_ = cairo_create(surface_);
      ownsContext_ = true;
      for (const PixelRect& r : damage_.rects()) cairo_rectangle(cr_, r.x, r.y, r.width, r.height);
      cairo_clip(cr_);
    }
    clearDamage();
    const cairo_matrix_t matrix{scale_, 0.0, 0.0, scale_, dx_, dy_};
    cairo_set_matrix(cr_, &matrix);
    return cr_;
  }

  // Whether a piece goes into the frame's pixels without Cairo: not into a group's surface nor
  // through a clip Cairo keeps.
  bool direct() const { return image_ && cairoOnly_ == 0; }

  void fillPixels(PixelRect r, std::uint32_t pixel) {
    if (isEmpty(r)) return;
    pixman_fill(pixman_image_get_data(image_), pixman_image_get_stride(image_) / 4, 32, r.x, r.y, r.width, r.height,
                pixel);
  }
  void clearDamage() {
    unreached_.forEach([&](PixelRect r) { fillPixels(r, 0); });
    pixman_region32_clear(unreached_.get());
  }
  // Calls `lay(part, fresh)` for each part of `r` within the damage: `fresh` where no piece
  // reached before, whose pixels `lay` must write whole; else over cleared or painted pixels.
  template <class Lay>
  void eachPart(PixelRect r, Lay&& lay) {
    if (isEmpty(r)) return;
    Region piece(r), fresh;
    // Most pieces land where nothing reached yet, which lies within the damage: one cut.
    const pixman_box32_t box{r.x, r.y, r.x + r.width, r.y + r.height};
    if (pixman_region32_contains_rectangle(unreached_.get(), &box) == PIXMAN_REGION_IN) {
      pixman_region32_subtract(unreached_.get(), unreached_.get(), piece.get());
      return lay(r, true);
    }
    pixman_region32_intersect(piece.get(), piece.get(), damaged_.get());
    pixman_region32_intersect(fresh.get(), piece.get(), unreached_.get());
    if (pixman_region32_not_empty(fresh.get())) {
      pixman_region32_subtract(unreached_.get(), unreached_.get(), fresh.get());
      pixman_region32_subtract(piece.get(), piece.get(), fresh.get());
      fresh.forEach([&](PixelRect part) { lay(part, true); });
    }
    piece.forEach([&](PixelRect part) { lay(part, false); });
  }

  // A background of one colour over `rect` (points, user space).
  void fill(CGRect rect, double radius, const CGColorRef& color, double alpha) {
    const std::optional<PixelRect> whole =
        radius > 0.0 || !direct() ? std::nullopt
                                  : wholePixels(rect.minX() * scale_ + dx_, rect.minY() * scale_ + dy_,
                                                rect.size.width * scale_, rect.size.height * scale_);
    if (!whole) {
      cairo_t* cr = context();
      roundedRectPath(cr, rect, radius);
      setSourceColor(cr, color, alpha);
      cairo_fill(cr);
      return;
    }
    const std::uint32_t pixel = premultiplied(drawnColor(color, alpha));
    pixman_image_t* solid = nullptr;
    eachPart(*whole, [&](PixelRect part, bool fresh) {
      if (fresh || pixel >> 24 == 0xff) {
        fillPixels(part, pixel);
        return;
      }
      if (!solid) {
        const auto level = [&](int shift) { return static_cast<std::uint16_t>((pixel >> shift & 0xff) * 0x101); };
        const pixman_color_t c{level(16), level(8), level(0), level(24)};
        solid = pixman_image_create_solid_fill(&c);
      }
      pixman_image_composite32(PIXMAN_OP_OVER, solid, nullptr, image_, 0, 0, 0, 0, part.x, part.y, part.width,
                               part.height);
    });
    if (solid) pixman_image_unref(solid);
  }

  // The kept pixels with their first pixel at `origin` (points, the current user space),
  // placed on the nearest whole device pixel: text stays as sharp as it was drawn.
  void composite(const BackingStore& store, CGPoint origin, double alpha) {
    const double x = std::round(origin.x * scale_ + dx_), y = std::round(origin.y * scale_ + dy_);
    const PixelRect at{static_cast<int>(x) + offset_.x, static_cast<int>(y) + offset_.y, store.width, store.height};
    if (layers_) {
      layDown(store, at, 0, alpha);
      return;
    }
    // Transparent pixels laid down change nothing.
    const PixelRect inked{at.x + store.ink.x, at.y + store.ink.y, store.ink.width, store.ink.height};
    if (isEmpty(inked)) return;
    // Over the damage's cleared pixels, where nothing of this frame lies yet (in a group's
    // surface too), blending is a copy, even through a mask: most of a text's store is
    // transparent, and a copy need not look at it. At a fraction of alpha it would be no copy.
    const bool ontoCleared = alpha >= 1.0 &&
                             std::none_of(painted_.begin(), painted_.end(),
                                          [&](const PixelRect& r) { return Damage::overlap(inked, r); });
    if (direct() && alpha >= 1.0) {
      const auto lay = [&](pixman_op_t op, PixelRect r) {
        // A copy needs no compositing's setup.
        if (op == PIXMAN_OP_SRC &&
            pixman_blt(pixman_image_get_data(store.image), pixman_image_get_data(image_),
                       pixman_image_get_stride(store.image) / 4, pixman_image_get_stride(image_) / 4, 32, 32,
                       r.x - at.x, r.y - at.y, r.x, r.y, r.width, r.height)) {
          return;
        }
        pixman_image_composite32(op, store.image, nullptr, image_, r.x - at.x, r.y - at.y, 0, 0, r.x, r.y, r.width,
                                 r.height);
      };
      eachPart(inked, [&](PixelRect part, bool fresh) {
        // Blended only where something of this frame lies already (a mark under a label).
        PixelRect under{};
        if (!fresh && !ontoCleared) {
          for (const PixelRect& r : painted_) {
            const PixelRect both = intersection(r, part);
            if (!isEmpty(both)) under = isEmpty(under) ? both : Damage::unite(under, both);
          }
        }
        if (isEmpty(under)) return lay(PIXMAN_OP_SRC, part);
        eachAround(part, under, [&](PixelRect band) { lay(PIXMAN_OP_SRC, band); });
        lay(PIXMAN_OP_OVER, under);
      });
    } else {
      cairo_t* cr = context();
      cairo_save(cr);
      cairo_identity_matrix(cr);
      cairo_rectangle(cr, x + store.ink.x, y + store.ink.y, store.ink.width, store.ink.height);
      cairo_clip(cr);
      cairo_set_source_surface(cr, store.surface, x, y);
      if (ontoCleared) cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
      cairo_paint_with_alpha(cr, alpha);
      cairo_restore(cr);
    }
    painted_.push_back(inked);
  }

  // A subtree quads cannot show (a group's alpha, a border, a rounded clip or background drawn
  // in place) laid down on the CPU into one store the size of its pixels, as the CPU frame would
  // lay it, and listed as one layer: drawn again only when something in it changed.
  void flatten(const UIView& view, std::size_t index) {
    const RenderEntry& entry = entries_[index];
    next_ = entry.subtreeEnd;
    const PixelRect at = damage_.toPixels(entry.subtreeRect);
    if (at.width <= 0 || at.height <= 0) return;
    BackingStore& flat = stores_.flatFor(view, at.width, at.height);
    const std::uint64_t look = lookOf(entries_, index);
    if (flat.version != look || flat.scale != scale_) {
      cairo_t* cr = cairo_create(flat.surface);
      cairo_set_operator(cr, CAIRO_OPERATOR_CLEAR);
      cairo_paint(cr);
      cairo_set_operator(cr, CAIRO_OPERATOR_OVER);
      // paint() starts from the superview's bounds, as the frame's walk reaches the view.
      const CGRect frame = view.frame(), bounds = view.bounds();
      const CGPoint superOrigin{entry.contentOrigin.x + bounds.origin.x - frame.origin.x,
                                entry.contentOrigin.y + bounds.origin.y - frame.origin.y};
      Damage all = damage_.emptyLike();
      all.add(at);
      Painter(
          cr, entries_, all, stores_, scale_, nullptr, index, at,
          {superOrigin.x * scale_ + static_cast<double>(-at.x), superOrigin.y * scale_ + static_cast<double>(-at.y)})
          .paint(view);
      cairo_destroy(cr);
      cairo_surface_flush(flat.surface);
      flat.scale = scale_;
      flat.version = look;
      ++flat.generation;
    }
    clip_ = &entry.clip;
    layDown(flat, at, 0, 1.0);
  }

  // A layer: `store`'s pixels at `at`, or a rectangle of `color` at `rect` (points, the current
  // user space) without one.
  void layDown(const BackingStore& store, PixelRect at, std::uint32_t color, double alpha) {
    layers_->layers.push_back({store.id, store.generation,
                               reinterpret_cast<const std::uint32_t*>(cairo_image_surface_get_data(store.surface)),
                               cairo_image_surface_get_stride(store.surface), at, toPixels(*clip_), alpha, color});
  }
  void layDown(std::nullptr_t, CGRect rect, std::uint32_t color, double alpha) {
    const PixelRect at = rounded(rect.minX() * scale_ + dx_, rect.minY() * scale_ + dy_, rect.maxX() * scale_ + dx_,
                                 rect.maxY() * scale_ + dy_);
    layers_->layers.push_back({0, 0, nullptr, 0, at, toPixels(*clip_), alpha, color});
  }
  static PixelRect rounded(double left, double top, double right, double bottom) {
    const auto l = static_cast<int>(std::lround(left)), t = static_cast<int>(std::lround(top));
    return {l, t, static_cast<int>(std::lround(right)) - l, static_cast<int>(std::lround(bottom)) - t};
  }
  // A clip on whole pixels: a layer host cuts there.
  PixelRect toPixels(CGRect points) const {
    return rounded(points.minX() * scale_, points.minY() * scale_, points.maxX() * scale_, points.maxY() * scale_);
  }

  cairo_t* cr_;
  bool ownsContext_ = false;
  cairo_surface_t* surface_ = nullptr;  // the CPU frame's
  pixman_image_t* image_ = nullptr;     // its pixels
  Region damaged_, unreached_;          // the CPU frame's damage, and what no piece reached yet
  int cairoOnly_ = 0;                   // groups and clips the walk is within
  const std::vector<RenderEntry>& entries_;
  const Damage& damage_;
  BackingStores& stores_;
  double scale_;
  UILayerFrame* layers_;
  std::size_t next_;
  PixelRect offset_;  // where the surface's first pixel lies on the frame
  double dx_, dy_;    // where user space's origin lies on the surface
  const CGRect* clip_ = nullptr;  // the clip of the view whose pieces are listed
  std::vector<PixelRect> painted_;  // what this frame has drawn so far, in pixels of the frame
};

}  // namespace

BackingStore::BackingStore() : id([] {
  static std::uint64_t made = 0;
  return ++made;
}()) {}

BackingStore::~BackingStore() {
  if (image) pixman_image_unref(image);
  if (surface) cairo_surface_destroy(surface);
}

std::size_t BackingStore::bytes() const {
  return surface ? static_cast<std::size_t>(cairo_image_surface_get_stride(surface)) * static_cast<std::size_t>(height)
                 : 0;
}

bool BackingStore::resize(int newWidth, int newHeight, std::size_t& total) {
  if (surface && width == newWidth && height == newHeight) return false;
  total -= bytes();
  if (image) pixman_image_unref(image);
  if (surface) cairo_surface_destroy(surface);
  surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, newWidth, newHeight);
  image = imageOf(surface);
  width = newWidth;
  height = newHeight;
  total += bytes();
  return true;
}

UIHost::Renderer::~Renderer() { reset(); }

namespace {

// Whole pixels covering `size` points at `scale`.
int pixels(double points, double scale) { return static_cast<int>(std::ceil(points * scale - 1e-9)); }

}  // namespace

KeptDrawing& BackingStores::keptFor(const UIView& view) {
  auto& slot = stores_[&view];
  if (slot && slot->owner.lock().get() != &view) {
    bytes_ -= slot->bytes();
    slot.reset();  // another view's, at an address used again
  }
  if (!slot) {
    slot = std::make_unique<KeptDrawing>();
    slot->owner = view.weak_from_this();
  }
  return *slot;
}

const BackingStore* BackingStores::storeFor(UIView& view, double scale) {
  auto known = drawsContent_.find(typeid(view));
  if (known == drawsContent_.end()) known = drawsContent_.emplace(typeid(view), probeDrawsContent(view)).first;
  if (!known->second) return nullptr;
  const CGRect bounds = view.bounds();
  const int width = pixels(bounds.size.width, scale), height = pixels(bounds.size.height, scale);
  if (width <= 0 || height <= 0) return nullptr;

  BackingStore& store = keptFor(view).content;
  const bool resized = store.resize(width, height, bytes_);
  const bool whole = resized || store.scale != scale || store.origin != bounds.origin || store.version == 0;
  if (!whole && store.version == view.displayVersion()) return &store;

  const std::optional<CGRect> part = whole ? std::nullopt : view.displayChangeSince(store.version);
  cairo_t* cr = cairo_create(store.surface);
  PixelRect partPixels{};
  if (part) {
    // The part on whole pixels: clearing a fraction of one would leave it half cleared.
    const double left = std::floor((part->minX() - bounds.origin.x) * scale);
    const double top = std::floor((part->minY() - bounds.origin.y) * scale);
    const double right = std::ceil((part->maxX() - bounds.origin.x) * scale);
    const double bottom = std::ceil((part->maxY() - bounds.origin.y) * scale);
    cairo_rectangle(cr, left, top, right - left, bottom - top);
    cairo_clip(cr);
    const auto pixel = [](double v, int most) {
      return static_cast<int>(std::clamp(v, 0.0, static_cast<double>(most)));
    };
    const int x = pixel(left, width), y = pixel(top, height);
    partPixels = {x, y, pixel(right, width) - x, pixel(bottom, height) - y};
  }
  cairo_set_operator(cr, CAIRO_OPERATOR_CLEAR);
  cairo_paint(cr);
  cairo_set_operator(cr, CAIRO_OPERATOR_OVER);
  cairo_scale(cr, scale, scale);
  cairo_translate(cr, -bounds.origin.x, -bounds.origin.y);
  view.drawRect(cr, part ? CGRectIntersection(*part, bounds) : bounds);
  cairo_destroy(cr);
  cairo_surface_flush(store.surface);
  // A part drawn again may only have grown the ink: looking at the whole store would cost more.
  if (!part) {
    store.ink = inkedPixels(store.surface);
  } else if (!isEmpty(partPixels)) {
    store.ink = isEmpty(store.ink) ? partPixels : Damage::unite(store.ink, partPixels);
  }
  store.scale = scale;
  store.origin = bounds.origin;
  store.version = view.displayVersion();
  ++store.generation;
  return &store;
}

std::optional<PixelRect> BackingStores::inkOf(const UIView& view) const {
  const auto found = stores_.find(&view);
  if (found == stores_.end()) return std::nullopt;
  // A new size, bounds or scale draws it again too.
  const BackingStore& store = found->second->content;
  if (store.version != view.displayVersion() || found->second->owner.lock().get() != &view) return std::nullopt;
  return store.ink;
}

const BackingStore* BackingStores::backgroundFor(const UIView& view, double scale) {
  // A large one (a page's card) is rarely drawn again and would hold much memory: filled.
  constexpr long long kMostPixels = 256 * 256;
  const CGSize size = view.bounds().size;
  const int width = pixels(size.width, scale), height = pixels(size.height, scale);
  if (width <= 0 || height <= 0 || static_cast<long long>(width) * height > kMostPixels) return nullptr;
  BackingStore& store = keptFor(view).background;
  const bool resized = store.resize(width, height, bytes_);
  const std::uint64_t version = view.layerVersion() + 1;
  if (!resized && store.scale == scale && store.version == version) return &store;
  cairo_t* cr = cairo_create(store.surface);
  cairo_set_operator(cr, CAIRO_OPERATOR_CLEAR);
  cairo_paint(cr);
  cairo_set_operator(cr, CAIRO_OPERATOR_OVER);
  cairo_scale(cr, scale, scale);
  roundedRectPath(cr, {{0.0, 0.0}, size}, view.layer().cornerRadius());
  setSourceColor(cr, view.backgroundColor()->CGColor());
  cairo_fill(cr);
  cairo_destroy(cr);
  cairo_surface_flush(store.surface);
  store.ink = inkedPixels(store.surface);
  store.scale = scale;
  store.version = version;
  ++store.generation;
  return &store;
}

BackingStore& BackingStores::flatFor(const UIView& view, int width, int height) {
  BackingStore& store = keptFor(view).flat;
  if (store.resize(width, height, bytes_)) store.version = 0;
  return store;
}

void BackingStores::freeOffTheTree(const UIWindow* window) {
  const std::uint64_t changes = viewTreeChanges().changes;
  if (freedAt_ == changes && freedFor_ == window) return;
  freedAt_ = changes;
  freedFor_ = window;
  for (auto it = stores_.begin(); it != stores_.end();) {
    const auto owner = it->second->owner.lock();
    if (owner && window && it->first->window() == window) {
      ++it;
      continue;
    }
    bytes_ -= it->second->bytes();
    it = stores_.erase(it);
  }
}

std::size_t BackingStores::bytesOf(const UIView& view) const {
  const auto found = stores_.find(&view);
  return found == stores_.end() || found->second->owner.lock().get() != &view ? 0 : found->second->bytes();
}

void UIHost::Renderer::reset() {
  if (image) pixman_image_unref(image);
  image = nullptr;
  if (surface) cairo_surface_destroy(surface);
  surface = nullptr;
  frame = UIFrame{};
  previous.clear();
}

namespace {

// The window's views in paint order into `buffers.entries`, and the damage since `previous`
// (all of it without one).
// `died`: views that died since `previous` was taken.
std::shared_ptr<UIWindow> walk(CGSize size, double scale, const std::vector<RenderEntry>* previous,
                               std::uint64_t died, const BackingStores& stores, Damage& damage, FrameBuffers& buffers) {
  buffers.entries.clear();
  std::shared_ptr<UIWindow> window = UIApplication::sharedApplication().keyWindow();
  if (window) collect(*window, window->frame().origin, {{0.0, 0.0}, size}, 1.0, buffers.entries);
  if (previous) {
    diff(*previous, buffers.entries, died, stores, scale, damage, buffers);
  } else {
    damage.addWhole();
  }
  return window;
}

}  // namespace

const UILayerFrame& UIHost::Renderer::renderLayers(CGSize size, double scale) {
  const int width = static_cast<int>(std::lround(size.width * scale));
  const int height = static_cast<int>(std::lround(size.height * scale));
  layers.width = width;
  layers.height = height;
  layers.scale = scale;
  layers.layers.clear();
  // A layer frame lists every visible view, so it needs no damage: only the CPU frame's
  // measure of a pixel.
  Damage damage(width, height, scale);
  const std::shared_ptr<UIWindow> window = walk(size, scale, nullptr, 0, stores, damage, buffers);
  if (window) Painter(nullptr, buffers.entries, damage, stores, scale, &layers).paint(*window);
  stores.freeOffTheTree(window.get());
  return layers;
}

const UIFrame& UIHost::Renderer::render(CGSize size, double scale) {
  const int width = static_cast<int>(std::lround(size.width * scale));
  const int height = static_cast<int>(std::lround(size.height * scale));
  // Too many deaths to tell which views of the last frame died: it is no guide.
  const std::uint64_t deaths = viewTreeChanges().deaths, died = deaths - previousDeaths;
  const bool whole = !surface || width != frame.width || height != frame.height || scale != frame.scale ||
                     died > ViewTreeChanges::kDeathsKept;
  if (whole) {
    reset();
    surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    image = imageOf(surface);
    frame.width = width;
    frame.height = height;
    frame.scale = scale;
    frame.stride = cairo_image_surface_get_stride(surface);
  }

  // Kept from frame to frame, as the last frame's list: a frame allocates little.
  Damage damage(width, height, scale, std::move(frame.damage));
  const std::shared_ptr<UIWindow> window =
      walk(size, scale, whole ? nullptr : &previous, died, stores, damage, buffers);
  std::vector<RenderEntry>& entries = buffers.entries;
  damage.simplify();
  if (!damage.empty()) {
    Painter painter(nullptr, entries, damage, stores, scale);
    painter.into(surface, image, std::move(buffers.painted));
    if (window) painter.paint(*window);
    buffers.painted = painter.finish();
    stores.freeOffTheTree(window.get());
  }
  frame.pixels = reinterpret_cast<const std::uint32_t*>(cairo_image_surface_get_data(surface));
  frame.damage = std::move(damage).take();
  previous.swap(entries);
  previousDeaths = deaths;
  return frame;
}

}  // namespace tavrel
