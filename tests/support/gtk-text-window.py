#!/usr/bin/python3
"""A text window of another toolkit, with the focus, that keeps its text in a file: gtk-text-window.py FILE"""
import sys

import gi

gi.require_version("Gtk", "3.0")
from gi.repository import Gtk  # noqa: E402


def write(buffer):
    with open(sys.argv[1], "w", encoding="utf-8") as file:
        file.write(buffer.get_text(buffer.get_start_iter(), buffer.get_end_iter(), True))


window = Gtk.Window(title="Letter", default_width=500, default_height=300)
text = Gtk.TextView()
text.get_buffer().connect("changed", write)
window.connect("focus-in-event", lambda *_: write(text.get_buffer()))
window.add(text)
window.show_all()
text.grab_focus()
Gtk.main()
