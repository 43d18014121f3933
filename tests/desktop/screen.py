"""Pictures of a virtual screen, read from the memory that the X server draws in."""

import struct
import zlib


class Picture:
    """Rows of pixels, each red, green and blue."""

    def __init__(self, width, height, rows):
        self.width, self.height, self.rows = width, height, rows

    def pixel(self, x, y):
        return tuple(self.rows[y][3 * x:3 * x + 3])

    def crop(self, x, y, width, height):
        left, top = max(x, 0), max(y, 0)
        right, bottom = min(x + width, self.width), min(y + height, self.height)
        return Picture(right - left, bottom - top,
                       [row[3 * left:3 * right] for row in self.rows[top:bottom]])

    def pixels(self):
        for row in self.rows:
            yield from zip(row[0::3], row[1::3], row[2::3])

    def save(self, path):
        def chunk(name, content):
            return (struct.pack(">I", len(content)) + name + content +
                    struct.pack(">I", zlib.crc32(name + content)))

        header = struct.pack(">IIBBBBB", self.width, self.height, 8, 2, 0, 0, 0)
        body = zlib.compress(b"".join(b"\0" + bytes(row) for row in self.rows), 9)
        with open(path, "wb") as file:
            file.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", body) +
                       chunk(b"IEND", b""))


def read(path):
    """The picture in an X window dump of 32-bit pixels, as Xvfb -fbdir keeps it."""
    with open(path, "rb") as file:
        dump = file.read()
    fields = struct.unpack(">25I", dump[:100])
    header_size, width, height = fields[0], fields[4], fields[5]
    bits_per_pixel, bytes_per_line, colors = fields[11], fields[12], fields[19]
    if bits_per_pixel != 32:
        raise ValueError(f"{path}: {bits_per_pixel} bits per pixel")
    little_endian = fields[7] == 0
    red, green, blue = (2, 1, 0) if little_endian else (1, 2, 3)
    start = header_size + 12 * colors
    rows = []
    for y in range(height):
        line = dump[start + y * bytes_per_line:start + y * bytes_per_line + 4 * width]
        row = bytearray(3 * width)
        row[0::3], row[1::3], row[2::3] = line[red::4], line[green::4], line[blue::4]
        rows.append(row)
    return Picture(width, height, rows)
