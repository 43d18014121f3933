"""What the tests know of the answers they set up, and how they tell colours."""

import time

GUARD_ID = "GEN-from-the-guard"
SERVICE_ID = "GEN-from-the-service"


def minutes_ago(minutes):
    # half a minute more, so that the text stays the same while a test runs
    return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(time.time() - 60 * minutes - 30))


def colors(pixels):
    """The tint of a drawing, from (alpha, red, green, blue): "orange", "red", "none" or "mixed"."""
    opaque = [pixel[1:] for pixel in pixels if pixel[0] > 200]
    assert len(opaque) > len(pixels) / 50, "nothing is drawn"
    names = {tint(*pixel) for pixel in opaque}
    return names.pop() if len(names) == 1 else "mixed"


def tint(red, green, blue):
    if max(red, green, blue) - min(red, green, blue) < 16:
        return "none"
    if red > 180 and blue < 110:
        return "orange" if green > 120 else "red"
    return f"{red, green, blue}"
