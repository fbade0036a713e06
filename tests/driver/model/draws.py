"""The generator of random numbers: the standard library's numbers, without its checks of every argument."""

import random


class Draws(random.Random):
    """Cases draw millions of numbers from small ranges."""

    def randrange(self, start, stop=None):
        if stop is None:
            start, stop = 0, start
        width = stop - start
        if width <= 0:
            raise ValueError(f"no number lies in {start}..{stop}")
        bits = width.bit_length()
        number = self.getrandbits(bits)
        while number >= width:
            number = self.getrandbits(bits)
        return start + number

    def choice(self, items):
        return items[self.randrange(len(items))]
