"""Many changes of the item make neither the panel that --panel names nor the item's own process grow."""

from memory import check_growth


def test_the_item_and_its_host_never_grow(lab, panel):
    check_growth(panel, may_judge=not lab.program.sanitized)
