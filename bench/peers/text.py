"""How the tables of bench/compare write numbers."""


def number(x, digits=3):
    if x is None:
        return "–"
    if x == 0:
        return "0"
    if abs(x) >= 10 ** digits:
        return f"{x:,.0f}"
    text = f"{x:.{digits}g}"
    return f"{float(text):.9f}".rstrip("0").rstrip(".") if "e" in text else text


def milliseconds(x):
    return "–" if x is None else number(x * 1e3)


def times(x):
    return "–" if x is None else f"{x:.2f} ×" if x < 10 else f"{x:,.0f} ×"


def times3(x):
    return "–" if x is None else f"{x:.3f} ×"


def ratio(a, b):
    return None if a is None or not b else a / b


def megabytes(x):
    return "–" if x is None else number(x, 2 if x < 10 else 3)


def total(record, *names):
    parts = [record.get(name) for name in names]
    return None if None in parts else sum(parts)


def verdict(value, target, at_most):
    if value is None:
        return "–"
    met = value <= target if at_most else value >= target
    return f"{'≤' if at_most else '≥'} {target:g} {'met' if met else 'missed'}"


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|---" + "|---:" * (len(header) - 1) + "|"]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows]) + "\n"
