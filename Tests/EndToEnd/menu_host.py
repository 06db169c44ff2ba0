"""A host application whose menu has entries of every kind. Written with the example, whose own menu
is a plain one.

    menu_host.py FOLDER PATH=BADGE...
"""

import os
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "examples"))
import host  # noqa: E402 (found there)


def item(title, tag=0, submenu=None, **fields):
    archived = {**fields, "NSTitle": title, "NSKeyEquiv": "", "NSMnemonicLoc": 2147483647}
    if tag:
        archived |= {"NSAction": "act:", "NSTag": tag}
    if submenu is not None:
        archived["NSSubmenu"] = ("NSMenu", {
            "NSTitle": title, "NSMenuItems": ("NSMutableArray", {"NS.objects": submenu})})
    return "NSMenuItem", archived


MENU = [
    item("Open Online", 1),
    item("Hidden", 2, NSIsHidden=True),
    item("", NSIsDisabled=True, NSIsSeparator=True),
    item("Disabled", 3, NSIsDisabled=True),
    item("Marked", 4, NSState=1),
    item("Partly", 5, NSState=-1),
    item("Indented", 6, NSIndent=2),
    item("While a key is held", 7, NSIsAlternate=True),
    item("Under_score & more", 8),
    item("Share", submenu=[
        item("By Mail", 9),
        item("Hidden There", 10, NSIsHidden=True),
        item("Deeper", submenu=[item("Too Deep", 11)]),
        item("By Link", 12)]),
]
answer_as_the_example = host.answer


def answer(message, payload):
    if message == 1:
        return "NSArray", {"NS.objects": MENU}
    return answer_as_the_example(message, payload)


host.answer = answer
sys.stdin = os.fdopen(os.pipe()[0])  # It ends when it is ended.
host.main()
