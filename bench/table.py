"""The table of figures: each beside its reference, and whether it reaches its aim."""


def times(limit):
    """At most so many times the reference."""
    return f"<= {limit:g} times", lambda value, reference: value <= limit * reference


def at_least(limit):
    """At least so many times the reference."""
    return f">= {limit:g} times", lambda value, reference: value >= limit * reference


def within(share):
    """No further from the reference than this share of it."""
    return f"within {share:.0%}", lambda value, reference: abs(value - reference) <= share * reference


def plus(more):
    """The reference and so much more."""
    return f"<= + {more:g}", lambda value, reference: value <= reference + more


def at_most(limit):
    """So much, whatever the reference."""
    return f"<= {limit:g}", lambda value, _: value <= limit


class Table:
    """It grows downwards as figures come in."""

    def __init__(self):
        self.missed = []
        print(f"{'figure':60}{'skylet':>10}{'reference':>11}{'ratio':>8}  {'aim':14}", flush=True)

    def row(self, figure, value, reference, aim=None):
        text, is_reached = aim or ("", lambda *_: True)
        reached = is_reached(value, reference)
        ratio = f"{value / reference:.2f}" if reference else ""
        print(f"{figure:60}{value:10.4g}{reference:11.4g}{ratio:>8}  {text:14}{'' if reached else 'missed'}", flush=True)
        if not reached:
            self.missed.append(figure)
