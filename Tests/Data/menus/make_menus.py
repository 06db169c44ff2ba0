#!/usr/bin/env python3
"""Writes the menus of this folder: replies of a host as a keyed archive (.plist), and beside each
what it holds (.json). Run it after a change; a test compares its output with what is kept here.

They have the shapes that archives of real menus have: mutable texts and arrays, texts and pictures
that several items share, tags that come with several actions, "$null" in the middle, represented
objects with numbered keys, items of other classes, alternates, submenus in submenus, both orders of
the top level, and the XML form.

    make_menus.py FOLDER
"""

import json
import plistlib
import sys
from pathlib import Path

UID = plistlib.UID
COMMAND = 1 << 20
SHIFT = 1 << 17
OPTION = 1 << 19


class Archive:
    """The objects of an archive as they are written. A text or a picture that is the same Python
    object is one object of the archive."""

    def __init__(self):
        self.objects = ["$null"]
        self.known = {}
        self.kept = []  # So that no other object gets the identity of one that is known.

    def add(self, thing, fields):
        """The number of `thing`, whose fields `fields(self)` gives when it is new."""
        if id(thing) not in self.known:
            number = len(self.objects)
            self.objects.append(None)
            self.known[id(thing)] = number
            self.kept.append(thing)
            self.objects[number] = fields(self)
        return UID(self.known[id(thing)])

    def add_class(self, name, *above):
        for number, one in enumerate(self.objects):
            if isinstance(one, dict) and one.get("$classname") == name:
                return UID(number)
        self.objects.append({"$classname": name, "$classes": [name, *above, "NSObject"]})
        return UID(len(self.objects) - 1)

    def add_null(self):
        self.objects.append("$null")
        return UID(len(self.objects) - 1)


class Text:
    """A string as an object of its own, mutable or not."""

    def __init__(self, text, is_mutable=False):
        self.text, self.is_mutable = text, is_mutable

    def write(self, archive):
        if not self.is_mutable:
            return archive.add(self, lambda _: self.text)
        return archive.add(self, lambda archive: {
            "NS.string": self.text,
            "$class": archive.add_class("NSMutableString", "NSString")})


class Picture:
    """A picture by its resource's name, as interface files have it."""

    def __init__(self, name):
        self.name = name

    def write(self, archive):
        return archive.add(self, lambda archive: {
            "NSClassName": Text("NSImage").write(archive),
            "NSResourceName": Text(self.name).write(archive),
            "$class": archive.add_class("NSCustomResource")})


class Attributed:
    def __init__(self, text):
        self.text = text

    def write(self, archive):
        return archive.add(self, lambda archive: {
            "NSString": Text(self.text).write(archive),
            "$class": archive.add_class("NSAttributedString")})


class Numbered:
    """A dictionary with the numbered keys of old archives."""

    def __init__(self, **entries):
        self.entries = entries

    def write(self, archive):
        def fields(archive):
            result = {}
            for number, (key, value) in enumerate(self.entries.items()):
                result[f"NS.key.{number}"] = Text(key).write(archive)
                result[f"NS.object.{number}"] = value.write(archive)
            result["$class"] = archive.add_class("NSMutableDictionary", "NSDictionary")
            return result
        return archive.add(self, fields)


class Address:
    def __init__(self, text):
        self.text = text

    def write(self, archive):
        return archive.add(self, lambda archive: {
            "NS.base": UID(0), "NS.relative": Text(self.text).write(archive),
            "$class": archive.add_class("NSURL")})


class Menu:
    def __init__(self, title, *items, autoenables=True, name=None, is_mutable=True):
        self.title = title if isinstance(title, Text) else Text(title)
        self.items, self.autoenables, self.name = items, autoenables, name
        self.is_mutable = is_mutable

    def write(self, archive):
        def fields(archive):
            result = {"NSTitle": self.title.write(archive),
                      "NSMenuItems": write_array(archive, self.items, self, self.is_mutable)}
            if not self.autoenables:
                result["NSNoAutoenable"] = True
            if self.name is not None:
                result["NSName"] = Text(self.name).write(archive)
            result["$class"] = archive.add_class("NSMenu")
            return result
        return archive.add(self, fields)

    def description(self):
        return {"autoenables": self.autoenables, "title": self.title.text,
                "items": [item.description() for item in self.items]}


class Item:
    def __init__(self, title, action=None, tag=0, *, key="", mask=0, state=0, enabled=True,
                 hidden=False, alternate=False, separator=False, submenu=None, attributed=None,
                 class_name=None, **more):
        self.title = title if isinstance(title, Text) else Text(title)
        self.action, self.tag, self.key, self.mask, self.state = action, tag, key, mask, state
        self.enabled, self.hidden, self.alternate = enabled, hidden, alternate
        self.separator, self.submenu, self.attributed = separator, submenu, attributed
        self.class_name, self.more = class_name, more
        if submenu is not None and action is None:
            self.action = "submenuAction:"

    def write(self, archive, menu=None):
        def fields(archive):
            result = {"NSMenu": menu.write(archive) if menu else archive.add_null(),
                      "NSTitle": self.title.write(archive),
                      "NSKeyEquiv": Text(self.key).write(archive),
                      "NSMnemonicLoc": 2147483647,
                      "NSOnImage": CHECKED.write(archive), "NSMixedImage": MIXED.write(archive)}
            for key, value in (("NSKeyEquivModMask", self.mask), ("NSTag", self.tag),
                               ("NSState", self.state), ("NSIsDisabled", not self.enabled),
                               ("NSIsHidden", self.hidden), ("NSIsAlternate", self.alternate),
                               ("NSIsSeparator", self.separator)):
                if value:
                    result[key] = value
            if self.action is not None:
                result["NSAction"] = Text(self.action).write(archive)
            if self.submenu is not None:
                result["NSSubmenu"] = self.submenu.write(archive)
            if self.attributed is not None:
                result["NSAttributedTitle"] = self.attributed.write(archive)
            for key, value in self.more.items():
                result[key] = value.write(archive) if hasattr(value, "write") else value
            above = ("NSMenuItem",) if self.class_name else ()
            result["$class"] = archive.add_class(self.class_name or "NSMenuItem", *above)
            return result
        return archive.add(self, fields)

    def description(self):
        return {"action": self.action, "alternate": self.alternate,
                "attributedTitle": self.attributed.text if self.attributed else None,
                "enabled": self.enabled, "hidden": self.hidden, "keyEquivalent": self.key,
                "mask": self.mask, "separator": self.separator, "state": self.state,
                "submenu": self.submenu.description() if self.submenu else None,
                "tag": self.tag, "title": self.title.text}


CHECKED = Picture("NSMenuCheckmark")
MIXED = Picture("NSMenuMixedState")


def write_array(archive, items, menu=None, is_mutable=True):
    array = list(items)

    def fields(archive):
        above = ("NSMutableArray", "NSArray") if is_mutable else ("NSArray",)
        return {"NS.objects": [item.write(archive, menu) for item in items],
                "$class": archive.add_class(*above)}
    return archive.add(array, fields)


def line():
    return Item("", enabled=False, separator=True, mask=COMMAND)


def plain():
    return [Item("Open in Browser", "openInBrowser:", 1), Item("Copy Link", "copyLink:", 2, key="c",
            mask=COMMAND | SHIFT), line(), Item("Version History…", "showVersions:", 3),
            Item("Offline", None, 4, enabled=False)]


def states():
    return [Item("Always Keep on This Device", "keep:", 10, state=1),
            Item("Free Up Space", "release:", 11, state=-1, key="\u007f", mask=COMMAND),
            Item("Never", "never:", 12, hidden=True), Item("Same as Parent", "inherit:", -1)]


def submenus():
    """Tags that come with several actions, on both levels; a submenu in a submenu."""
    return [Item("Share", submenu=Menu("Share",
                Item("With Link", "shareLink:", 5), Item("With People…", "sharePeople:", 5), line(),
                Item("Expires", tag=6, submenu=Menu("Expires",
                    Item("In a Day", "expire:", 6), Item("Never", "expireNever:", 7)))), tag=5),
            Item("Share", "shareAll:", 5), Item("Expires", "expireAll:", 6),
            Item("Empty", submenu=Menu("Empty"))]


def mutable():
    """Texts and arrays that the host went on changing, and a menu whose array is not such."""
    return [Item(Text("Übertragen", is_mutable=True), "transfer:", 20),
            Item(Text("同期を一時停止", is_mutable=True), "pause:", 21,
                 submenu=Menu(Text("同期", is_mutable=True), Item("30 分", "pause30:", 21),
                              is_mutable=False)),
            Item(Text("", is_mutable=True), "nothing:", 22)]


def shared():
    """One text and one picture in many items, and one tag on all of them."""
    title, picture = Text("Retry"), Picture("Retry")
    return [Item(title, f"retry{number}:", 30, NSImage=picture) for number in range(8)] + [
            Item("More", submenu=Menu(title, *(Item(title, f"more{number}:", 30, NSImage=picture)
                                               for number in range(4))))]


def represented():
    return [Item("Resolve Conflict", "resolve:", 40,
                 NSRepObject=Numbered(name=Text("report.docx"), version=Text("3", is_mutable=True),
                                      at=Address("file:///Volumes/Corvid/a%20b.docx"))),
            Item("Keep Both", "keepBoth:", 40, NSRepObject=Text("both")),
            Item("Details", "details:", 41, NSRepObject=Address("https://example.org/?a=b"))]


def alternates():
    return [Item("Move to Trash", "trash:", 50, key="\u0008", mask=COMMAND),
            Item("Delete Immediately…", "delete:", 50, key="\u0008", mask=COMMAND | OPTION,
                 alternate=True),
            Item("Indented", "indented:", 51, NSIndent=2, NSToolTip=Text("Two steps to the right")),
            Item("Bold", "bold:", 52, attributed=Attributed("Bold")),
            Item("Special", "special:", 53, class_name="CRVMenuItem")]


def manual():
    return [Item("Team", submenu=Menu("Team", Item("Anna", "member:", 60), Item("Öğe", "member:", 61),
                                      Item("👩‍👩‍👧", "member:", 62), autoenables=False,
                                      name="_CRVTeamMenu"), tag=60),
            Item("Leave Team", "leave:", 60)]


def deep():
    below = Menu("6", Item("The last", "last:", 76))
    for level in range(5, 0, -1):
        below = Menu(str(level), Item(f"Level {level}", f"level{level}:", 70 + level),
                     Item("Deeper", tag=70, submenu=below))
    return [Item("Deeper", tag=71, submenu=below), Item("Level 0", "level0:", 71)]


def many():
    return [Item(f"Device {number}", "device:" if number % 3 else f"device{number}:", number // 4,
                 state=number % 2) for number in range(40)]


MENUS = {"plain": plain, "states": states, "submenus": submenus, "mutable": mutable,
         "shared": shared, "represented": represented, "alternates": alternates, "manual": manual,
         "deep": deep, "many": many}
WRITTEN_AS_XML = {"states", "manual"}
TOP_LEVEL_FIRST = {"plain", "mutable", "deep"}


def write(folder):
    for name, make in MENUS.items():
        items = make()
        archive = Archive()
        root = write_array(archive, items, is_mutable=name not in TOP_LEVEL_FIRST)
        top = {"$version": 100000, "$archiver": "NSKeyedArchiver", "$top": {"root": root}}
        objects = {"$objects": archive.objects}
        whole = {**top, **objects} if name in TOP_LEVEL_FIRST else {**objects, **top}
        if name in WRITTEN_AS_XML:
            # The XML form has no word for a reference; there it is a dictionary of one key.
            text = plistlib.dumps(without_references(whole), fmt=plistlib.FMT_XML, sort_keys=False)
        else:
            text = plistlib.dumps(whole, fmt=plistlib.FMT_BINARY, sort_keys=False)
        Path(folder, name + ".plist").write_bytes(text)
        description = json.dumps([item.description() for item in items], ensure_ascii=False,
                                 indent=1, sort_keys=True)
        Path(folder, name + ".json").write_text(description + "\n", encoding="utf-8")


def without_references(value):
    if isinstance(value, UID):
        return {"CF$UID": value.data}
    if isinstance(value, dict):
        return {key: without_references(one) for key, one in value.items()}
    if isinstance(value, list):
        return [without_references(one) for one in value]
    return value


if __name__ == "__main__":
    if len(sys.argv) != 2 or sys.argv[1].startswith("-"):
        sys.exit(__doc__)
    write(sys.argv[1])
