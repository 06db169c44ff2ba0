// The module that the file manager loads: its entry points, and the two providers behind them.

#include "Extensions/FileManagers/Gtk/Module.h"
#include "Extensions/FileManagers/Gtk/AbsentItems.h"
#include "Extensions/FileManagers/Gtk/FileManager.h"
#include "Extensions/FileManagers/Gtk/FolderListing.h"
#include "Extensions/FileManagers/Gtk/GLibText.h"

#include <dlfcn.h>
#include <gio/gio.h>
#include <glib-unix.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

namespace corvid::gtk {

namespace {

/// Redrawing gives way to the file manager's own work after this long.
constexpr std::chrono::milliseconds kRedrawSlice{5};
/// Before drawing, which is 120 in GTK: badges are there when a folder is first drawn. They cannot
/// come so fast that nothing else is done, since the extension sends them every 4 ms at most and
/// RedrawQueue spreads them out.
/// Caja lays out a whole folder again for each few badges that come later; the others do not.
#ifdef CORVID_BADGES_BEFORE_DRAWING
constexpr int kLinkPriority = G_PRIORITY_DEFAULT + 10;
constexpr int kRedrawPriority = kLinkPriority;
#else
constexpr int kLinkPriority = G_PRIORITY_HIGH_IDLE + 30;
constexpr int kRedrawPriority = G_PRIORITY_DEFAULT_IDLE;
#endif

/// In hicolor, as the controller names it for the host's entries.
constexpr const char* kMenuIcon = "MorrowFilesAppIcon";

MenuProvider* menuProvider = nullptr; // weak; the file manager owns it
guint redrawSource = 0;               // now
guint laterRedrawSource = 0;          // when more may be drawn
guint absentSource = 0;
guint menusSource = 0;
AbsentItems absentItems;

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using GRef = std::unique_ptr<T, Unref>;

std::string pathOf(FileInfo* file) {
    const GRef<GFile> location(fileLocation(file));
    const GText path(location ? g_file_get_path(location.get()) : nullptr);
    return path ? path.get() : "";
}

void wantRedraw();

gboolean wantRedrawNow(gpointer /*data*/) {
    laterRedrawSource = 0;
    wantRedraw();
    return G_SOURCE_REMOVE;
}

GRef<FileInfo> fileAt(const std::string& path) {
    const GRef<GFile> location(g_file_new_for_path(path.c_str()));
    return GRef<FileInfo>(fileLookUp(location.get()));
}

void addEmblem(FileInfo* file, const std::string& badge) {
    if (!badge.empty()) {
        fileAddEmblem(file, ("corvid-" + badge).c_str());
    }
}

/// Gives an item that had no badge the one that it has now; false when the file manager does not
/// hold it.
bool addFirstBadge(const std::string& path) {
    const GRef<FileInfo> file = fileAt(path);
    if (file) {
        addEmblem(file.get(), frontEnd().badgeToAdd(path));
    }
    return file != nullptr;
}

gboolean lookForAbsent(gpointer /*data*/) {
    absentItems.lookFor(addFirstBadge, AbsentItems::Clock::now(), kRedrawSlice);
    if (absentItems.isEmpty()) {
        absentSource = 0;
    }
    return absentItems.isEmpty() ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
}

void redraw(const RedrawQueue::Item& item) {
    if (item.reason == RedrawQueue::Reason::firstBadge) {
        if (!addFirstBadge(item.path)) {
            absentItems.add(item.path, AbsentItems::Clock::now());
            if (absentSource == 0) {
                absentSource = g_timeout_add_full(kRedrawPriority, AbsentItems::kPeriod.count(),
                                                  lookForAbsent, nullptr, nullptr);
            }
        }
    } else if (const GRef<FileInfo> file = fileAt(item.path); file) {
        frontEnd().badgeWillBeAskedFor(item.path);
        fileInvalidate(file.get());
    }
}

gboolean redrawSome(gpointer /*data*/) {
    using std::chrono::steady_clock;
    const auto begin = steady_clock::now();
    while (steady_clock::now() - begin < kRedrawSlice) {
        const RedrawQueue::Item item = frontEnd().redraws().take(begin);
        if (item.path.empty()) {
            redrawSource = 0;
            if (const auto due = frontEnd().redraws().due(); due && laterRedrawSource == 0) {
                const auto pause = std::chrono::ceil<std::chrono::milliseconds>(*due - begin);
                laterRedrawSource =
                    g_timeout_add(static_cast<guint>(pause.count()), wantRedrawNow, nullptr);
            }
            return G_SOURCE_REMOVE;
        }
        redraw(item);
    }
    return G_SOURCE_CONTINUE;
}

void wantRedraw() {
    if (redrawSource == 0) {
        redrawSource = g_idle_add_full(kRedrawPriority, redrawSome, nullptr, nullptr);
    }
}

gboolean tellMenusChanged(gpointer /*data*/) {
    menusSource = 0;
    if (menuProvider != nullptr) {
        menusChanged(menuProvider);
    }
    return G_SOURCE_REMOVE;
}

void wantMenus() {
    // Before any click, which must not find a menu that lacks its entries.
    if (menusSource == 0) {
        menusSource = g_idle_add_full(G_PRIORITY_HIGH, tellMenusChanged, nullptr, nullptr);
    }
}

gboolean dispatchLink(gint /*fd*/, GIOCondition /*condition*/, gpointer data) {
    static_cast<FrontEnd*>(data)->dispatch();
    return G_SOURCE_CONTINUE;
}

void listingWanted(const std::string& folder, Listing which) {
    listItems(folder, which, [](const std::string& listed, const auto& items) {
        frontEnd().expect(listed, items);
    });
}

/// The extension that was installed together with this module; empty when there is none.
std::string extensionProgram() {
    if (const char* const program = std::getenv("CVD_FINDER_EXT_PROGRAM"); program != nullptr) {
        return program;
    }
    static const char kHere = 0;
    Dl_info module{};
    if (dladdr(&kHere, &module) == 0) {
        return {};
    }
    const std::string path = module.dli_fname;
    const std::size_t folder = path.rfind("/" CORVID_MODULE_FOLDER "/");
    return folder == std::string::npos
               ? std::string()
               : path.substr(0, folder) + "/" CORVID_PROGRAM_FOLDER "/corvid-finder-ext";
}

FrontEnd* makeFrontEnd() {
    link::LinkClient::Options options;
    options.frontEnd = kFrontEndName;
    options.extension = extensionProgram();
    FrontEnd::FileManager fileManager{wantRedraw, wantMenus, listingWanted};
#ifdef CORVID_ASKS_LATE
    fileManager.asksLate = true;
#endif
    auto* const made = new FrontEnd(std::move(options), std::move(fileManager));
    // After what people do and what they see of it: badges may come faster than they are drawn.
    g_unix_fd_add_full(kLinkPriority, made->fd(), G_IO_IN, dispatchLink, made, nullptr);
    return made;
}

// The badges.

/// A folder outside of the volume, which was at `volume` then: none of its items has a badge. Known
/// again by identity, in a fraction of the time that an item's path takes.
struct OutsideFolder {
    GRef<GFile> location;
    std::string volume;
};
OutsideFolder outsideFolder;

OperationResult updateFileInfo(InfoProvider* /*provider*/, FileInfo* file, GClosure* /*done*/,
                               OperationHandle** /*handle*/) {
    GRef<GFile> folder(fileParentLocation(file));
    const link::Volume& volume = frontEnd().volume();
    if (folder && folder == outsideFolder.location && volume.folder == outsideFolder.volume) {
        return kOperationComplete;
    }
    const std::string path = pathOf(file);
    if (path.empty()) {
        return kOperationComplete;
    }
    if (!volume.folder.empty() && !volume.holds(path.substr(0, path.rfind('/')))) {
        outsideFolder = {std::move(folder), volume.folder};
        return kOperationComplete;
    }
    addEmblem(file, frontEnd().badge(path, fileIsFolder(file)));
    return kOperationComplete;
}

void cancelUpdate(InfoProvider* /*provider*/, OperationHandle* /*handle*/) {
    // Every update is complete when it returns.
}

// The menus.

struct ClickTarget {
    std::uint32_t menu;
    std::uint32_t item;
};

void onActivate(MenuEntryObject* /*entry*/, gpointer data) {
    const auto* const target = static_cast<const ClickTarget*>(data);
    frontEnd().click(target->menu, target->item);
}

std::string labelOf(const link::MenuEntry& entry) {
    std::string label(std::size_t{entry.indentation} * 2, ' ');
    // These menus have no marks of their own.
    label += entry.state > 0 ? "✓ " : entry.state < 0 ? "– " : "";
    for (const char character : entry.title) {
        label += character == '_' ? "__" : std::string(1, character);
    }
    return label;
}

/// Builds the entries of one menu, numbering them as the link does.
class MenuBuilder {
public:
    /// File managers find an entry by its name when it is clicked: one that has gone, in a menu
    /// that is still on the screen, must not stand for its successor. Nautilus keeps all names for
    /// ever, and has one action for file and background entries of the same name.
    MenuBuilder(std::uint32_t menu, bool isBackground)
        : menu_(menu), prefix_((isBackground ? "CorvidBackground::" : "Corvid::") +
                               std::to_string(menu % kNamedMenus) + "::") {}

    MenuObject* build(const std::vector<link::MenuEntry>& entries) {
        MenuObject* const menu = menuNew();
        for (const link::MenuEntry& entry : entries) {
            MenuEntryObject* const made = build(entry);
            if (made != nullptr) {
                menuAppend(menu, made);
                g_object_unref(made);
            }
        }
        return menu;
    }

private:
    MenuEntryObject* build(const link::MenuEntry& entry) {
        const std::uint32_t number = next_++;
        MenuObject* const submenu = entry.hasSubmenu ? build(entry.submenu) : nullptr;
        // An alternate takes another entry's place while a key is held, which these menus cannot.
        if (entry.isHidden || entry.isAlternate) {
            if (submenu != nullptr) {
                g_object_unref(submenu);
            }
            return nullptr;
        }
        const std::string name = prefix_ + std::to_string(number);
        if (entry.isSeparator) {
            return menuSeparatorNew(name.c_str());
        }
        MenuEntryObject* const made =
            menuEntryNew(name.c_str(), labelOf(entry).c_str(), entry.toolTip.c_str(),
                         entry.iconName.empty() ? nullptr : entry.iconName.c_str());
        if (submenu != nullptr) {
            menuEntrySetSubmenu(made, submenu);
            g_object_unref(submenu);
        } else if (entry.isEnabled) {
            g_signal_connect_data(
                made, "activate", G_CALLBACK(onActivate), new ClickTarget{menu_, number},
                [](gpointer target, GClosure*) { delete static_cast<ClickTarget*>(target); },
                GConnectFlags{});
        } else {
            g_object_set(made, "sensitive", FALSE, nullptr);
        }
        return made;
    }

    /// As many as the extension takes clicks for.
    static constexpr std::uint32_t kNamedMenus = 32;

    const std::uint32_t menu_;
    const std::string prefix_;
    std::uint32_t next_ = 0;
};

MenuEntryObject* note(const char* text) {
    MenuEntryObject* const entry = menuEntryNew("Corvid::Note", text, "", nullptr);
    g_object_set(entry, "sensitive", FALSE, nullptr);
    return entry;
}

GList* menuItems(const MenuSelection& selection) {
    const MenuCache::KnownMenu* const known = frontEnd().menu(
        selection, isOpeningMenu() ? MenuCache::Use::opening : MenuCache::Use::preparing);
    if (known == nullptr || (known->isAnswer && known->entries.empty())) {
        return nullptr;
    }
    if (!known->isAnswer) {
        return g_list_append(
            nullptr, note(known->title.empty() ? "Corvid is not answering" : known->title.c_str()));
    }
    MenuEntryObject* const top =
        menuEntryNew(selection.isBackground ? "CorvidBackground::Top" : "Corvid::Top",
                     known->title.c_str(), "", kMenuIcon);
    MenuObject* const submenu =
        MenuBuilder(known->number, selection.isBackground).build(known->entries);
    menuEntrySetSubmenu(top, submenu);
    g_object_unref(submenu);
    return g_list_append(nullptr, top);
}

GList* fileItems(GList* files) {
    MenuSelection selection;
    for (const GList* file = files; file != nullptr; file = file->next) {
        auto* const info = static_cast<FileInfo*>(file->data);
        const std::string path = pathOf(info);
        if (path.empty()) {
            return nullptr;
        }
        selection.items.push_back({path, fileIsFolder(info)});
    }
    if (selection.items.empty()) {
        return nullptr;
    }
    const std::string& first = selection.items.front().path;
    selection.folder = first.substr(0, first.rfind('/'));
    return menuItems(selection);
}

GList* backgroundItems(FileInfo* folder) {
    MenuSelection selection;
    selection.folder = pathOf(folder);
    selection.items.push_back({selection.folder, true});
    selection.isBackground = true;
    return selection.folder.empty() ? nullptr : menuItems(selection);
}

/// The window comes between provider and list in Caja and Nemo, and is of no interest.
inline GList* getFileItems(MenuProvider* provider, GList* files) {
    menuProvider = provider;
    return fileItems(files);
}
template <class Window>
GList* getFileItems(MenuProvider* provider, Window* /*window*/, GList* files) {
    return getFileItems(provider, files);
}
inline GList* getBackgroundItems(MenuProvider* provider, FileInfo* folder) {
    menuProvider = provider;
    return backgroundItems(folder);
}
template <class Window>
GList* getBackgroundItems(MenuProvider* provider, Window* /*window*/, FileInfo* folder) {
    return getBackgroundItems(provider, folder);
}

// The type.

struct Extension {
    GObject parent;
};
struct ExtensionClass {
    GObjectClass parent;
};
GType extensionType = 0;

void initialiseInfoProvider(gpointer interface, gpointer /*data*/) {
    auto* const functions = static_cast<InfoProviderInterface*>(interface);
    functions->update_file_info = updateFileInfo;
    functions->cancel_update = cancelUpdate;
}

void initialiseMenuProvider(gpointer interface, gpointer /*data*/) {
    auto* const functions = static_cast<MenuProviderInterface*>(interface);
    functions->get_file_items = getFileItems;
    functions->get_background_items = getBackgroundItems;
}

} // namespace

FrontEnd& frontEnd() {
    // Never freed: the file manager keeps its modules until it exits.
    static FrontEnd* const theOne = makeFrontEnd();
    return *theOne;
}

std::string pathOfURI(const char* uri) {
    const GText path(g_filename_from_uri(uri, nullptr, nullptr));
    std::string text = path ? path.get() : "";
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

} // namespace corvid::gtk

// The entry points that the file manager looks up by name.

#define CORVID_EXPORT extern "C" __attribute__((visibility("default")))

CORVID_EXPORT void CORVID_FUNCTION(module_initialize)(GTypeModule* module) {
    using namespace corvid::gtk;
    static const GTypeInfo kInfo = {
        sizeof(ExtensionClass), nullptr, nullptr, nullptr, nullptr, nullptr,
        sizeof(Extension),      0,       nullptr, nullptr};
    extensionType =
        g_type_module_register_type(module, G_TYPE_OBJECT, "CorvidExtension", &kInfo, GTypeFlags{});
    static const GInterfaceInfo kInfoProvider = {initialiseInfoProvider, nullptr, nullptr};
    g_type_module_add_interface(module, extensionType, infoProviderType(), &kInfoProvider);
    static const GInterfaceInfo kMenuProvider = {initialiseMenuProvider, nullptr, nullptr};
    g_type_module_add_interface(module, extensionType, menuProviderType(), &kMenuProvider);
    registerObservation(module, extensionType);
}

CORVID_EXPORT void CORVID_FUNCTION(module_shutdown)() {}

CORVID_EXPORT void CORVID_FUNCTION(module_list_types)(const GType** types, int* count) {
    static GType list[1];
    list[0] = corvid::gtk::extensionType;
    *types = list;
    *count = 1;
}
