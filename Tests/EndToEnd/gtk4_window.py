"""A window of a file manager that is drawn by GTK 4. There, what can be asked for is where a thing is
in its own surface, not on the screen: the X server knows where the surfaces are. Each question goes
to the program itself, so only what is needed is looked at."""

from desktop import Atspi, GLib, Window, area_of, children_of, xerror


class Gtk4Window(Window):
    PASSED_OVER = ("tool bar", "scroll bar", "menu", "label", "image")
    BESIDE_THE_VIEW = ("Sidebar", "GtkActionBar", "AdwTabBar")
    LARGEST_BORDER = 100
    SAID_ALL_THE_TIME = ("Screen coordinates not supported",)

    def __init__(self, *arguments, **options):
        self.found = {}
        super().__init__(*arguments, **options)

    def part(self, frame, role, name):
        """What has that role and name in a window. Found once, for it takes hundreds of questions."""
        key = frame, role, name
        if key not in self.found:
            self.found[key] = next(
                (one for one in self.walk(frame)
                 if one.get_role_name() == role and one.get_name() == name), None)
        try:
            if self.found[key] is not None:
                self.found[key].get_role_name()  # fails for what is no longer there
                return self.found[key]
        except GLib.Error:
            pass
        del self.found[key]
        return None

    def passes_over(self, accessible):
        return (accessible.get_role_name() in self.PASSED_OVER or
                accessible.get_name() in self.BESIDE_THE_VIEW)

    # Where things are.

    def area(self):
        return self.desktop.wait_for(
            lambda: next((area for _, area in self._frames()), None), "the window")

    def _frames(self):
        """The windows, oldest first, and where on the screen the content of each is: inside of its
        border. The X server has those of one size in the same order."""
        application = self.application()
        surfaces = list(self._surfaces(is_popup=False)) if application else []
        for frame in children_of(application) if surfaces else ():
            _, _, width, height = area_of(frame)
            for surface in surfaces:
                wider, higher = surface.width - width, surface.height - height
                if wider == higher and 0 <= wider < self.LARGEST_BORDER:
                    surfaces.remove(surface)
                    yield frame, (surface.x + wider // 2, surface.y + higher // 2, width, height)
                    break

    def _surfaces(self, is_popup):
        for surface in self.desktop.surfaces(is_popup):
            try:
                geometry = surface.get_geometry()
            except (xerror.BadWindow, xerror.BadDrawable):  # it has just gone
                continue
            if geometry.width > 1:  # not what holds a selection
                yield geometry

    def find_items(self, name):
        for frame, (left, top, _, _) in self._frames():
            view = self.part(frame, "table", "GtkGridView")
            for cell in children_of(view) if view else ():
                item = cell.get_child_at_index(0)
                if item is not None and item.get_name() == name:
                    x, y, width, height = area_of(item)
                    yield left + x, top + y, width, height

    # Its menus: one popover, in which a submenu takes the place of what it belongs to.

    def _popover(self):
        """The open menu, its place in its surface and that on the screen; None when none is."""
        surfaces = list(self._surfaces(is_popup=True))
        for frame, _ in self._frames() if surfaces else ():
            content = self.part(frame, "filler", "Content View")
            for popover in children_of(content) if content else ():
                if popover.get_role_name() == "menu":
                    x, y, width, height = area_of(popover)
                    for surface in surfaces:
                        if (surface.width, surface.height) == (width, height):
                            return popover, (surface.x - x, surface.y - y)
        return None

    def _page(self, popover):
        """What is seen of the open menu: the one page that fills it."""
        content = popover.get_child_at_index(0)
        _, top, _, height = area_of(content)
        stack = content.get_child_at_index(0).get_child_at_index(0).get_child_at_index(0)
        for page in children_of(stack):
            panel = page.get_child_at_index(0)
            _, page_top, _, page_height = area_of(panel)
            if page_height > 0 and page_top - top == top + height - page_top - page_height:
                return panel
        return None

    def _entries_in(self, accessible):
        for child in children_of(accessible):
            if child.get_role_name() == "menu item":
                yield child
            elif child.get_role_name() == "panel":
                yield from self._entries_in(child)

    def click_item(self, name, **options):
        # A click beside a menu that is still on the screen would close that, and no more.
        self.desktop.wait_for(lambda: not any(self._surfaces(is_popup=True)),
                              "the end of the menu before")
        super().click_item(name, **options)

    def close_menu(self, depth=1):
        self.desktop.key("Escape")

    def shown_entries(self):
        popover = self._popover()
        page = popover and self._page(popover[0])
        return self._entries_in(page) if page else ()

    def entry(self, title):
        return self.desktop.wait_for(
            lambda: next((one for one in self.shown_entries() if one.get_name() == title), None),
            f"the menu entry {title!r}")

    def entries_below(self, title):
        # The first leads back to where the submenu was opened.
        back, *entries = self.shown_entries() or (None,)
        if back is None or back.get_name() != title:
            return []
        return [(one.get_name(), one.get_state_set().contains(Atspi.StateType.SENSITIVE))
                for one in entries]

    def choose(self, *titles):
        for title in titles:
            def place(title=title):
                popover = self._popover()
                page = popover and self._page(popover[0])
                for one in self._entries_in(page) if page else ():
                    if one.get_name() == title:
                        x, y, width, height = area_of(one)
                        return popover[1][0] + x + width / 2, popover[1][1] + y + height / 2
                return None
            self.desktop.click(*self.desktop.wait_for(place, f"the menu entry {title!r}"))


def open_window(desktop, manager, world, **options):
    """A window of that file manager."""
    kind = Gtk4Window if manager.is_gtk4 else Window
    return kind(desktop, manager, world, **options)
