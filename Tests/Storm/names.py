"""What is on the volume: names that people really give, and names that nobody should."""

import os
import unicodedata

PLAIN, ODD, LARGE, HUGE, CLICKS = b"plain", b"odd", b"large", b"huge", b"clicks"
DEEP = b"/".join([b"deep"] + [b"level %d" % level for level in range(12)])


def odd_names():
    """Names of every kind that a file system takes and a text does not expect."""
    texts = ["line\nbreak", "two\r\nlines\t", "\x1b[2Jescape", "bell\x07", "\x7f", "back\\slash",
             "-rf", "--help", "-", "~", " ", "blank at the end ", "percent%2Fslash", "%", "%00",
             "hash#question?", "quote\"quote'", "$(id)", "a;b|c&d", "*", "[x]", "{a,b}",
             "\u202eexe.txt", "שלום", "مرحبا.txt", "\u200bnothing", "\ufeffmark",
             "👩‍👩‍👧‍👦", "🏳️‍🌈 flag", "🇩🇪", "é", "e\u0301", unicodedata.normalize("NFD", "Größe"),
             unicodedata.normalize("NFC", "Größe"), "ﬁ", "Å", "ı", "İ", "x" * 255, "ä" * 127,
             "🦉" * 63, "a" * 251 + ".txt", "NUL", "COM1.txt", "\u2028separator", "\U000e0001tag"]
    return [text.encode() for text in texts] + [
        b"not\xffutf8", b"\xc3", b"\xed\xa0\x80", b"\xf4\x90\x80\x80", b"cut\xf0\x9f"]


def folders():
    """The names in each folder that somebody shows, by the folder's path below the volume."""
    return {
        PLAIN: [b"file %d.txt" % number for number in range(300)],
        ODD: odd_names(),
        LARGE: [b"photo-%05d.jpg" % number for number in range(3000)],
        DEEP: [b"%d" % number for number in range(40)],
    }


def make(volume):
    """Makes the folders that a listing reads, with their items."""
    volume = os.fsencode(volume)
    for folder in (PLAIN, ODD, DEEP, CLICKS, LARGE, HUGE):
        os.makedirs(os.path.join(volume, folder))
    for folder in (PLAIN, ODD):
        for name in folders()[folder]:
            with open(os.path.join(volume, folder, name), "wb"):
                pass
