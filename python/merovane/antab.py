"""The ANTAB checker: why a file is refused or misread, and a normalised text that loads as meant.

    from merovane import antab
    for f in antab.check("obs.antab", uvx="obs.uvx"):
        print(f.line, f.station, f.kind, f.text, "->", f.todo)
    result = antab.normalise("obs.antab", "fixed.antab", gain={"GB": "1.0"})

Kinds of findings: "error" (the parser refuses the file), "loss" (it loads but keeps something other
than what the file says), "question" (ambiguous: answer it with an option), "warning" and "note".
"""

from __future__ import annotations

import os
from dataclasses import dataclass
from typing import Any, Dict, List, Optional, Union

from . import _merovane

__all__ = ["Finding", "Change", "check", "normalise"]

PathLike = Union[str, "os.PathLike[str]"]


@dataclass
class Finding:
    """One thing the checker found: ``line`` from 1 (0: the whole file), upper-case ``station``
    (empty where none applies), ``kind``, the rule's ``code``, ``text`` and what to do (``todo``)."""

    line: int
    station: str
    kind: str
    code: str
    text: str
    todo: str


@dataclass
class Change:
    """One change of the normalised text: input ``line`` (0 for a new line), ``before``, ``after``
    (empty for a removed line) and ``why``."""

    line: int
    before: str
    after: str
    why: str


def _run(path: PathLike, uvx: Optional[PathLike], options: Dict[str, Any]) -> Dict[str, Any]:
    return _merovane.antab_check(os.fspath(path), "" if uvx is None else os.fspath(uvx), **options)


def check(path: PathLike, uvx: Optional[PathLike] = None, **options: Any) -> List[Finding]:
    """The findings for ANTAB file ``path``, in line order; with ``uvx`` also checked against that
    observation (stations, IF ranges, Tsys coverage). Options: gain {station: "dpfu[,dpfu]"},
    index {station: "'R1','L1'"}, drop_extra [stations], keep {station: block}, coverage_minutes.
    Raises MerovaneError when a file cannot be read."""
    return [Finding(**f) for f in _run(path, uvx, options)["findings"]]


def normalise(path: PathLike, out: Optional[PathLike] = None, uvx: Optional[PathLike] = None,
              **options: Any) -> Dict[str, Any]:
    """Normalises ``path``: returns {"findings", "changes", "text", "stopped", "changed"} and, with
    ``out``, writes the text there. When a question stopped the normaliser ("stopped" true) nothing
    is written and the findings of kind "question" say which option answers it."""
    r = _run(path, uvx, options)
    result = {
        "findings": [Finding(**f) for f in r["findings"]],
        "changes": [Change(**c) for c in r["changes"]],
        "text": r["normalised"],
        "stopped": r["stopped"],
        "changed": r["changed"],
    }
    if out is not None and not r["stopped"]:
        tmp = os.fspath(out) + ".part"
        with open(tmp, "w", encoding="latin-1", newline="") as f:
            f.write(r["normalised"])
        os.replace(tmp, os.fspath(out))
    return result
