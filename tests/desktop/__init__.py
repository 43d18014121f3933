"""A private desktop: display, buses, window manager, menu bar, and what people do there.

Shared by the end-to-end tests and by script/run on machines without a display.
Nothing here is global: several desktops live side by side, and none outlives
the process that made it.
"""
