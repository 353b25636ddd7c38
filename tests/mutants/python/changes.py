"""The places of a Python module that mutants change, and what becomes of each.

In goes the text of a module; out comes its syntax tree, in which every statement has a number, and
its mutants, each of which can put itself in place.
"""

import ast
import copy
import dataclasses
import inspect
import re
import types

ORDERS = {
    ast.Lt: (ast.LtE, ast.GtE),
    ast.LtE: (ast.Lt, ast.Gt),
    ast.Gt: (ast.GtE, ast.LtE),
    ast.GtE: (ast.Gt, ast.Lt),
    ast.Eq: (ast.NotEq,),
    ast.NotEq: (ast.Eq,),
    ast.Is: (ast.IsNot,),
    ast.IsNot: (ast.Is,),
    ast.In: (ast.NotIn,),
    ast.NotIn: (ast.In,),
}
OPERATIONS = {
    ast.Add: ast.Sub,
    ast.Sub: ast.Add,
    ast.Mult: ast.Div,
    ast.Div: ast.Mult,
    ast.FloorDiv: ast.Mult,
    ast.Mod: ast.Mult,
    ast.Pow: ast.Mult,
    ast.LShift: ast.RShift,
    ast.RShift: ast.LShift,
    ast.BitAnd: ast.BitOr,
    ast.BitOr: ast.BitAnd,
    ast.BitXor: ast.BitAnd,
}
OPPOSITES = {"min": "max", "max": "min", "any": "all", "all": "any"}

# Fields that say what a thing is, not what it does: annotations, and how a record class is made.
WORDLESS = {"annotation", "returns", "decorator_list", "type_params", "type_comment", "kind"}


@dataclasses.dataclass(frozen=True, eq=False)
class Mutant:
    module: str
    number: int  # among the mutants of the module
    statement: int  # number of the statement that it stands in
    line: int
    text: str  # the first line of the statement
    old: str
    new: str
    slot: tuple  # what holds the changed node: owner, field, place in the field's list or None
    node: ast.AST  # what stands there instead

    def put_in_place(self):
        owner, field, place = self.slot
        if place is None:
            setattr(owner, field, self.node)
        else:
            getattr(owner, field)[place] = self.node

    def describe(self):
        """One line: where, what, and the source line."""
        return f"{self.module}:{self.line}  {self.old} -> {self.new}  | {self.text}"

    def key(self):
        """What the mutant is known by in explained.txt, wherever its line stands."""
        return f"{self.old} -> {self.new} | {self.text}"


def parsed(text):
    """The syntax tree of a module with a number, `mark`, on every statement."""
    tree = ast.parse(text)
    for mark, node in enumerate(n for n in ast.walk(tree) if isinstance(n, ast.stmt)):
        node.mark = mark
    return tree


def compiled(tree, path):
    return compile(ast.fix_missing_locations(tree), path, "exec", dont_inherit=True)


def marked(tree):
    """The tree with a call ahead of every statement that leaves its number, `leave_mark(number)`."""
    for node in list(ast.walk(tree)):
        for _, body in ast.iter_fields(node):
            if isinstance(body, list) and body and isinstance(body[0], ast.stmt):
                body[:] = [part for stmt in body for part in _with_mark(stmt, body)]
    return tree


def _with_mark(stmt, body):
    if is_text(stmt) and stmt is body[0] or is_future(stmt):
        return [stmt]  # has to stay in front
    call = ast.Call(ast.Name("leave_mark", ast.Load()), [ast.Constant(stmt.mark)], [])
    return [ast.copy_location(ast.Expr(call), stmt), stmt]


def changed_functions(before, after):
    """The bodies of a changed module that differ from those before it: functions that stand in the
    module or in a class. None where the module's or a class's own statements differ.
    """
    if _own(before) != _own(after):
        return None
    found = []
    for one, other in zip(_inner(before), _inner(after)):
        if one.co_flags & inspect.CO_OPTIMIZED:
            found += [] if _whole(one) == _whole(other) else [other]
        else:  # a class
            inner = changed_functions(one, other)
            if inner is None:
                return None
            found += inner
    return found


def _inner(code):
    return [part for part in code.co_consts if isinstance(part, types.CodeType)]


def _own(code):
    consts = [repr(part) for part in code.co_consts if not isinstance(part, types.CodeType)]
    return code.co_code, consts, code.co_names, code.co_varnames, len(_inner(code))


def _whole(code):
    return _own(code), [_whole(part) for part in _inner(code)]


def is_text(stmt):
    """Whether a statement is a text that stands alone, as the description of something does."""
    return (isinstance(stmt, ast.Expr) and isinstance(stmt.value, ast.Constant)
            and isinstance(stmt.value.value, str))


def is_future(stmt):
    return isinstance(stmt, ast.ImportFrom) and stmt.module == "__future__"


def mutants_of(tree, text, module):
    """All mutants of a module, in the order of its text."""
    lines = text.splitlines()
    found = []
    for slot, node, stmt, changed in _changes(tree, None):
        words = _kind if isinstance(changed, (ast.Pass, ast.Return)) else _words
        old, new = words(node), words(changed)
        found.append(Mutant(module, len(found), stmt.mark, getattr(node, "lineno", stmt.lineno),
                            lines[stmt.lineno - 1].strip(), old, new, slot, changed))
    return found


def _words(node):
    text = ast.unparse(node)
    return text if len(text) <= 72 else f"{text[:48]} ... {text[-20:]}"


def _kind(stmt):
    if isinstance(stmt, ast.Return) and ast.unparse(stmt.value) == "None":
        return "return None"
    return type(stmt).__name__.lower()


def _changes(node, stmt):
    """(slot, node, its statement, what becomes of it) of everything below a node."""
    for field, value in ast.iter_fields(node):
        if field in WORDLESS:
            continue
        for place, child in enumerate(value) if isinstance(value, list) else [(None, value)]:
            if not isinstance(child, ast.AST) or _is_left_alone(child):
                continue
            child.is_format = field == "format_spec"
            inner = child if isinstance(child, ast.stmt) else stmt
            for changed in _forms(child, node, field):
                yield (node, field, place), child, inner, changed
            yield from _changes(child, inner)


def _is_left_alone(node):
    """What has no part in what the module does."""
    if isinstance(node, ast.stmt) and (is_text(node) or is_future(node)):
        return True
    if isinstance(node, ast.Assign):
        return ast.unparse(node.targets[0]) == "__all__"
    if isinstance(node, ast.If):
        return ast.unparse(node.test) == "TYPE_CHECKING"
    return isinstance(node, ast.Assert)  # a word to whoever reads and to the checker of types


def _with(node, **fields):
    other = copy.copy(node)
    for name, value in fields.items():
        setattr(other, name, value)
    return ast.copy_location(other, node)


def _forms(node, owner, field):
    """What becomes of a node."""
    if isinstance(node, ast.Compare):
        for k, order in enumerate(node.ops):
            for other in ORDERS[type(order)]:
                yield _with(node, ops=[*node.ops[:k], other(), *node.ops[k + 1 :]])
    elif isinstance(node, (ast.BinOp, ast.AugAssign)) and type(node.op) in OPERATIONS:
        yield _with(node, op=OPERATIONS[type(node.op)]())
    elif isinstance(node, ast.BoolOp):
        yield _with(node, op=ast.Or() if isinstance(node.op, ast.And) else ast.And())
    elif isinstance(node, ast.UnaryOp) and isinstance(node.op, (ast.Not, ast.USub, ast.Invert)):
        yield node.operand
    elif isinstance(node, ast.Constant):
        yield from _other_constants(node, owner, field)
    elif isinstance(node, ast.Slice):
        for bound in ("lower", "upper"):
            if getattr(node, bound) is not None:
                yield _with(node, **{bound: None})
    elif isinstance(node, ast.Call):
        yield from _opposite_calls(node)
    if field in ("test", "ifs") and not isinstance(
            node, (ast.Compare, ast.BoolOp, ast.Constant)) and not _is_not(node):
        yield ast.copy_location(ast.UnaryOp(ast.Not(), node), node)
    if isinstance(node, ast.stmt):
        yield from _other_statements(node)


def _is_not(node):
    return isinstance(node, ast.UnaryOp) and isinstance(node.op, ast.Not)


def _other_constants(node, owner, field):
    value = node.value
    if isinstance(value, bool):
        others = [not value]
    elif isinstance(value, int):
        others = [value + 1, value - 1]
    elif isinstance(value, float):
        others = [value * 2.0 if value else 1.0]
    elif isinstance(value, str) and isinstance(owner, ast.JoinedStr) and field == "values":
        finer = re.sub(r"\d+", lambda digits: str(int(digits[0]) + 1), value)
        others = [finer if owner.is_format and finer != value else ""]
    elif isinstance(value, str):
        others = ["" if value else "~"]
    elif isinstance(value, bytes):
        others = [b"" if value else b"~"]
    else:
        others = []
    for other in others:
        yield ast.copy_location(ast.Constant(other), node)


def _opposite_calls(node):
    called = node.func
    if isinstance(called, ast.Name) and called.id in OPPOSITES:
        yield _with(node, func=_with(called, id=OPPOSITES[called.id]))
    elif isinstance(called, ast.Attribute) and called.attr in OPPOSITES:
        yield _with(node, func=_with(called, attr=OPPOSITES[called.attr]))


def _other_statements(node):
    if isinstance(node, ast.Return):
        if node.value is not None and ast.unparse(node.value) != "None":
            yield ast.copy_location(ast.Return(ast.Constant(None)), node)
    elif isinstance(node, (ast.Raise, ast.Continue, ast.Break, ast.AugAssign)) or (
            isinstance(node, ast.Expr) and isinstance(node.value, ast.Call)) or (
            isinstance(node, ast.Assign)
            and not any(isinstance(target, (ast.Name, ast.Tuple)) for target in node.targets)):
        yield ast.copy_location(ast.Pass(), node)
