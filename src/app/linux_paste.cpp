#include "app/linux_paste.h"

#include <atspi/atspi.h>
#include <gtk/gtk.h>
#include <unistd.h>

#include <map>
#include <string_view>
#include <vector>

#include "app/linux_portal_paste.h"
#include "app/linux_x11_input.h"
#include "integrations/linux_subprocesses.h"

namespace {

// Formats that describe the selection rather than hold its contents.
bool contentTarget(std::string_view name) {
  for (std::string_view meta : {"TARGETS", "TIMESTAMP", "MULTIPLE", "SAVE_TARGETS", "DELETE",
                                "INSERT_SELECTION", "INSERT_PROPERTY"})
    if (name == meta) return false;
  return true;
}

}  // namespace

// The CLIPBOARD selection through GTK: every format of whatever is on it is read
// asynchronously and served again by this process after the paste.
class LinuxDelivery::Clipboard final : public Delivery::Clipboard {
 public:
  static constexpr size_t kCap = 64u << 20;  // all formats together
  static constexpr guint kDeadlineMs = 500;  // an owner slower than this loses what is late

  Clipboard() : clip_(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD)) {}
  ~Clipboard() override {
    ++generation_;
    if (serving_) gtk_clipboard_clear(clip_);
  }

  void save(std::function<void()> done) override {
    incoming_.clear();  // what is served now may be what is being saved
    bytes_ = 0;
    waiting_ = 0;
    done_ = std::move(done);
    guint generation = ++generation_;
    gtk_clipboard_request_targets(clip_, onTargets, new Ticket{this, generation, alive_});
    g_timeout_add(kDeadlineMs, onDeadline, new Ticket{this, generation, alive_});
  }

  void setText(const std::string& text) override {
    gtk_clipboard_set_text(clip_, text.data(), static_cast<gint>(text.size()));
    serving_ = false;
  }

  void restore() override {
    if (saved_.empty()) {
      gtk_clipboard_clear(clip_);
      return;
    }
    std::vector<GtkTargetEntry> entries;
    for (size_t i = 0; i < saved_.size(); ++i)
      entries.push_back({saved_[i].name.data(), 0, static_cast<guint>(i)});
    serving_ = gtk_clipboard_set_with_data(
        clip_, entries.data(), static_cast<guint>(entries.size()), serve, cleared, this);
  }

 private:
  struct Item {
    std::string name;
    GdkAtom type;
    gint format;
    std::string data;
  };
  // Passed to GTK's callbacks, which may come after this object or this request is gone.
  struct Ticket {
    Clipboard* self;
    guint generation;
    std::weak_ptr<bool> alive;
    Clipboard* live() const {
      return alive.lock() && self->generation_ == generation ? self : nullptr;
    }
  };

  void finish() {
    if (!done_) return;
    auto done = std::move(done_);
    done_ = nullptr;
    ++generation_;  // formats still on their way are dropped
    saved_ = std::move(incoming_);
    incoming_.clear();
    done();
  }

  static void onTargets(GtkClipboard* clip, GdkAtom* atoms, gint count, gpointer data) {
    std::unique_ptr<Ticket> ticket(static_cast<Ticket*>(data));
    Clipboard* self = ticket->live();
    if (!self) return;
    for (gint i = 0; i < count; ++i) {
      gchar* name = gdk_atom_name(atoms[i]);
      bool wanted = contentTarget(name);
      g_free(name);
      if (!wanted) continue;
      ++self->waiting_;
      gtk_clipboard_request_contents(clip, atoms[i], onContents, new Ticket(*ticket));
    }
    if (self->waiting_ == 0) self->finish();
  }

  static void onContents(GtkClipboard*, GtkSelectionData* selection, gpointer data) {
    std::unique_ptr<Ticket> ticket(static_cast<Ticket*>(data));
    Clipboard* self = ticket->live();
    if (!self) return;
    gint length = gtk_selection_data_get_length(selection);
    if (length >= 0 && self->bytes_ + static_cast<size_t>(length) <= kCap) {
      gchar* name = gdk_atom_name(gtk_selection_data_get_target(selection));
      const guchar* bytes = gtk_selection_data_get_data(selection);
      self->incoming_.push_back(
          {name, gtk_selection_data_get_data_type(selection),
           gtk_selection_data_get_format(selection),
           std::string(reinterpret_cast<const char*>(bytes), static_cast<size_t>(length))});
      self->bytes_ += static_cast<size_t>(length);
      g_free(name);
    }
    if (--self->waiting_ == 0) self->finish();
  }

  static gboolean onDeadline(gpointer data) {
    std::unique_ptr<Ticket> ticket(static_cast<Ticket*>(data));
    if (Clipboard* self = ticket->live()) self->finish();
    return G_SOURCE_REMOVE;
  }

  static void serve(GtkClipboard*, GtkSelectionData* selection, guint info, gpointer data) {
    auto* self = static_cast<Clipboard*>(data);
    if (info >= self->saved_.size()) return;
    const Item& item = self->saved_[info];
    gtk_selection_data_set(selection, item.type, item.format,
                           reinterpret_cast<const guchar*>(item.data.data()),
                           static_cast<gint>(item.data.size()));
  }

  static void cleared(GtkClipboard*, gpointer data) {
    static_cast<Clipboard*>(data)->serving_ = false;
  }

  GtkClipboard* clip_;
  std::vector<Item> saved_;     // what the clipboard held before the paste
  std::vector<Item> incoming_;  // being read
  size_t bytes_ = 0;
  int waiting_ = 0;
  guint generation_ = 0;
  bool serving_ = false;
  std::function<void()> done_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// What has the keyboard focus: the focused accessible object, followed from AT-SPI focus
// events (a text role or an editable text), of the active window's process on X11; the
// window's class also tells a terminal (xterm has no accessibility at all).
class LinuxDelivery::Focus final : public Delivery::Desktop {
 public:
  Focus(Loop& loop, Defaults& defaults, bool x11, bool wlroots)
      : x11_(x11),
        wtype_(wlroots ? g_find_program_in_path("wtype") : nullptr, g_free),
        runner_(loop) {
    if (!x11_ && !wtype_) portal_ = std::make_unique<PortalKeyboard>(loop, defaults);
    if (atspi_init() > 1) return;
    atspi_set_timeout(300, 1000);  // the calls made for one focus event
    listener_ = atspi_event_listener_new(onEvent, this, nullptr);
    GError* error = nullptr;
    if (!atspi_event_listener_register(listener_, "object:state-changed:focused", &error)) {
      g_warning("Vantler: no focus events from the accessibility bus: %s",
                error ? error->message : "unknown error");
      g_clear_error(&error);
      return;
    }
    accessibility_ = true;
  }
  ~Focus() override {
    if (listener_) {
      atspi_event_listener_deregister(listener_, "object:state-changed:focused", nullptr);
      g_object_unref(listener_);
    }
  }

  Delivery::Target focus() override {
    const int self = static_cast<int>(::getpid());
    int pid = last_;
    if (x11_) {
      X11Input::Focus window = X11Input::activeWindow();
      if (Delivery::isTerminal(window.app)) return Delivery::Target::terminal;
      pid = window.pid;
    }
    auto it = fields_.find(pid);
    return pid == self || it == fields_.end() ? Delivery::Target::none : it->second;
  }

  void typePaste(Delivery::Target target, const std::string& text,
                 std::function<void(bool)> done) override {
    if (x11_) return done(X11Input::typePaste(target == Delivery::Target::terminal));
    if (portal_) return portal_->paste(target == Delivery::Target::terminal, std::move(done));
    if (!wtype_) return done(false);
    // wlroots compositors take typing through the virtual-keyboard protocol; a Ctrl+V typed
    // that way does not paste, so the text itself is typed.
    Subprocesses::Options options;
    options.deadline = 5;
    if (!runner_.run({wtype_.get(), "--", text}, options,
                     [done](const Subprocesses::Result& r) { done(r.exited0); }))
      done(false);
  }

  bool accessibility() const { return accessibility_; }
  bool x11() const { return x11_; }
  bool wtype() const { return wtype_ != nullptr; }
  bool portal() const { return portal_ != nullptr; }

 private:
  // An application keeps its focused field while its window is in the background, so the
  // field is remembered per process and looked up for the active window.
  static void onEvent(AtspiEvent* event, void* data) {
    auto* self = static_cast<Focus*>(data);
    if (event->source) {
      int pid = static_cast<int>(atspi_accessible_get_process_id(event->source, nullptr));
      Delivery::Target target = event->detail1 ? kind(event->source) : Delivery::Target::none;
      if (target == Delivery::Target::none) {
        self->fields_.erase(pid);
      } else if (self->fields_.size() < 256 || self->fields_.count(pid)) {
        self->fields_[pid] = target;
      }
      if (event->detail1) self->last_ = pid;
    }
    g_boxed_free(ATSPI_TYPE_EVENT, event);
  }

  static Delivery::Target kind(AtspiAccessible* object) {
    switch (atspi_accessible_get_role(object, nullptr)) {
      case ATSPI_ROLE_TERMINAL:
        return Delivery::Target::terminal;
      case ATSPI_ROLE_TEXT:
      case ATSPI_ROLE_ENTRY:
      case ATSPI_ROLE_PASSWORD_TEXT:
        return Delivery::Target::field;
      default:
        break;
    }
    AtspiEditableText* editable = atspi_accessible_get_editable_text_iface(object);
    if (!editable) return Delivery::Target::none;
    g_object_unref(editable);
    return Delivery::Target::field;
  }

  bool x11_;
  std::unique_ptr<char, void (*)(void*)> wtype_;  // its path, on wlroots compositors
  Subprocesses runner_;
  std::unique_ptr<PortalKeyboard> portal_;  // where neither XTest nor wtype can type
  bool accessibility_ = false;
  AtspiEventListener* listener_ = nullptr;
  std::map<int, Delivery::Target> fields_;  // process id: its focused field
  int last_ = 0;                            // the process of the latest focus event
};

LinuxDelivery::LinuxDelivery(Loop& loop, Defaults& defaults, bool x11, bool wlroots)
    : clipboard_(std::make_unique<Clipboard>()),
      focus_(std::make_unique<Focus>(loop, defaults, x11, wlroots)),
      delivery_(std::make_unique<Delivery>(loop, *clipboard_, *focus_)) {}

LinuxDelivery::~LinuxDelivery() = default;

std::string LinuxDelivery::mechanism() const {
  std::string focus = focus_->accessibility() ? "focused field through AT-SPI" : "no AT-SPI";
  if (focus_->x11()) return "paste: XTest Ctrl+V, " + focus;
  if (focus_->wtype()) return "paste: typed with wtype (virtual keyboard), " + focus;
  if (focus_->portal())
    return "paste: Ctrl+V through the desktop portal's remote desktop keyboard (the text stays "
           "on the clipboard when it is missing or refused), " +
           focus;
  return "paste: none, dictated text is left on the clipboard; " + focus;
}
