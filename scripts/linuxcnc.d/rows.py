"""What the rows of the realtime sampler say, one each period, as columns by name (machine.Sampler). Times ms, counted by
the periods as they were."""


def marked_at(rows):
    """The row in which the mark was raised; there may still be rows of an earlier one."""
    marks = rows["proof_mark"]
    rises = [i for i, on in enumerate(marks) if on and (i == 0 or not marks[i - 1])]
    if not rises:
        raise RuntimeError("the sampler has no row of the mark")
    return rises[-1]


def ms_until(rows, first, condition):
    """From this row to the first one that fulfils the condition; None: none does."""
    elapsed = 0.0
    for i in range(first, len(rows["period"])):
        if condition(i):
            return elapsed
        elapsed += rows["period"][i] / 1e6
    return None


def last_ms(rows, first, condition):
    """From this row to behind the last one that fulfils the condition; None: none does."""
    last, elapsed = None, 0.0
    for i in range(first, len(rows["period"])):
        elapsed += rows["period"][i] / 1e6
        if condition(i):
            last = elapsed
    return last


def speed_at(rows, i):
    """mm/s, of X, Y and Z together; a row is a ms of LinuxCNC's time, however long it took."""
    ahead = min(max(i + 1, 1), len(rows["x"]) - 1)
    return sum((rows[axis][ahead] - rows[axis][ahead - 1]) ** 2 for axis in "xyz") ** 0.5 * 1e3


def lit_again(rows, first):
    """Rows with light behind the first dark one."""
    dark = next((i for i in range(first, len(rows["light"])) if not rows["light"][i]), len(rows["light"]))
    return int(sum(rows["light"][dark:]))
