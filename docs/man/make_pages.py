"""Writes the manual pages of section 3 from the comments of the headers, so that they say what the headers say. The version
and its month are filled in when the pages are installed.

    make_pages.py include docs/man           writes them
    make_pages.py --check include docs/man   fails unless they are there as it would write them
"""

import pathlib
import re
import sys
import textwrap

# The libraries. Every function and variable that a header exports to C is on one of its pages, in this order.
LIBRARIES = (
    {
        "header": "vemkn.h",
        "end": "namespace yafad",
        "package": "vemkn",
        "library": "libvemkn",
        "page": "vemkn",
        "purpose": "values and exact derivatives of a small dense feed-forward network",
        "description": (
            "libvemkn evaluates a small dense feed\\-forward network and differentiates it",
            "exactly, for a host that fits the weights with an optimiser of its own.",
        ),
        "files": (
            ("vemkn.h", "the interface, for C99 and C++"),
            ("vemkn.hpp", "a C++20 class on top of it, documented in the file"),
            ("vemkn_errors.h", "for C++ hosts that want to hear of a division by zero among derivatives"),
        ),
        "pages": {
            "vemkn_network": (
                "life cycle, settings, shapes and weights of a network",
                "initVEMKNet vemk_check releaseVEMKNet vemk_setpar vemk_setbatch vemk_quiet vemk_major vemk_nobanner vemk_numin "
                "vemk_maxcols vemk_numout vemk_numel vemk_weights vemk_bias vemk_setweights vemk_getweights vemkn_rowmajor g_ndd",
            ),
            "vemkn_values": (
                "outputs, residuals and objective of a network",
                "vemk_compute vemk_residual vemk_obj vemk_objv",
            ),
            "vemkn_gradient": (
                "gradient and Hessian products of the objective",
                "vemk_g vemk_Hv",
            ),
            "vemkn_jacobian": (
                "products with the Jacobian of the normed residuals",
                "vemk_Jv vemk_vJ vemk_vJ_vec",
            ),
            "vemkn_likelihood": (
                "the likelihood without a network, the words of descriptions, and the version",
                "vemk_norm vemk_logp vemk_logp_bias vemk_logp_sigma vemk_activations vemk_norms vemk_version",
            ),
        },
    },
    {
        "header": "vemkn_fit.h",
        "end": "#endif /* VEMKN_FIT_H */",
        "package": "vemknfit",
        "library": "libvemknfit",
        "page": "vemknfit",
        "purpose": "robust regression by a small network, model files, predictions",
        "description": (),
        "files": (("vemkn_fit.h", "the interface, for C99 and C++, with the structures of options and progress"),),
        "pages": {
            "vemknfit_fits": (
                "robust fits, and predictions of new rows",
                "vemkn_fit_robust vemkn_fit_free vemkn_fit_predict vemkn_fit_interval vemkn_fit_version vemkn_fit_message "
                "vemkn_fit_row",
            ),
            "vemknfit_files": (
                "model files",
                "vemkn_fit_save vemkn_fit_load vemkn_fit_write vemkn_fit_read",
            ),
            "vemknfit_contents": (
                "what a fit holds",
                "vemkn_fit_columns vemkn_fit_column vemkn_fit_targets vemkn_fit_target vemkn_fit_core vemkn_fit_shift "
                "vemkn_fit_decay vemkn_fit_objective vemkn_fit_gradient vemkn_fit_settled vemkn_fit_rows "
                "vemkn_fit_beyond vemkn_fit_layers vemkn_fit_width vemkn_fit_activation vemkn_fit_method "
                "vemkn_fit_weights vemkn_fit_covariance vemkn_fit_parameters vemkn_fit_notes vemkn_fit_note",
            ),
        },
    },
)
LABELS = "Ownership|Messages|Failure|Threads"
NAMES = r"\b(initVEMKNet|releaseVEMKNet|vemk_\w+|vemkn_fit_\w+|vemkn_rowmajor|g_ndd)\b(?!\.h)"


def escaped(text):
    """Text that stands for itself in roff."""
    text = text.replace("\\", "\\e").replace("^", "\\(ha").replace("~", "\\(ti").replace("`", "\\(ga")
    text = re.sub(r"(?<![A-Za-z])-(?=[\dA-Za-z])", r"\\-", text)  # minus signs, not hyphens
    return text


def prose(text):
    """Filled lines: names of functions bold, no line that begins like a request."""
    marked = re.sub(NAMES, r"\\fB\1\\fP", escaped(" ".join(text.split())))
    lines = textwrap.wrap(marked, 78, break_long_words=False, break_on_hyphens=False)
    return ["\\&" + line if line[0] in ".'" else line for line in lines]


def literal(lines):
    """Lines that keep their breaks."""
    shown = [escaped(line).replace("-", "\\-").replace("\\\\-", "\\-") for line in lines]
    return [".PP", ".RS 4", ".nf", *["\\&" + line if line[:1] in ".'" and line else line for line in shown], ".fi", ".RE"]


def comment_lines(comment):
    """Lines of a /* ... */ or /** ... */ without the frame."""
    body = re.sub(r"^/\*+ ?|\s*\*/$", "", comment)
    return [re.sub(r"^ \* ?", "", line).rstrip() for line in body.split("\n")]


def blocks(lines):
    """Paragraphs, list items and literal pieces: ("text" | "item" | "code" | "section", lines)."""
    found = []
    for line in lines:
        kind = "code" if line.startswith("    ") else "text"
        if line.startswith("## "):
            found.append(("section", [line[3:]]))
        elif line.startswith("- "):
            found.append(("item", [line[2:]]))
        elif not line:
            found.append(("gap", []))
        elif kind == "text" and found and found[-1][0] in ("text", "item"):
            found[-1][1].append(line.strip())
        elif kind == "code" and found and found[-1][0] == "code":
            found[-1][1].append(line[4:])
        else:
            found.append((kind, [line[4:] if kind == "code" else line]))
    return [block for block in found if block[0] != "gap"]


def roff(lines):
    page = []
    for kind, content in blocks(lines):
        if kind == "section":
            page += [f".SS {escaped(content[0])}"]
        elif kind == "code":
            page += literal(content)
        elif kind == "item":
            page += [".IP \\(bu 2", *prose(" ".join(content))]
        else:
            page += [".PP", *prose(" ".join(content))]
    return page


def described(lines):
    """The comment of one function or variable."""
    items, text = [], []
    current = text
    for line in lines:
        if line.startswith("@") or re.match(f"({LABELS}):", line):
            current = [line]
            items.append(current)
        elif not line:
            current = text
            current.append("")
        else:
            current.append(line)
    page = roff(text)
    parameters, rest = [], []
    for item in items:
        joined = " ".join(part.strip() for part in item)
        if match := re.match(r"@param\[(\S+)\] +(\w+(?:, \w+)*) +(.*)", joined):
            way, name, meaning = match.groups()
            way = {"in": "in", "out": "out", "in,out": "in and out"}[way]
            parameters += [".TP", f"\\fI{name}\\fP ({way})", *prose(meaning)]
        elif match := re.match(r"@return +(.*)", joined):
            rest += [".TP", "Returns", *prose(match[1])]
        else:
            label, meaning = re.match(f"({LABELS}): +(.*)", joined).groups()
            rest += [".TP", label, *prose(meaning)]
    return page + parameters + rest


def declarations(header):
    """Name -> (declaration, lines of its comment)."""
    pattern = r"(/\*\*(?:(?!\*/).)*?\*/)\n((?:extern )?VEMKN(?:_FIT)?_API [^;]+;)"
    found = {}
    for comment, declaration in re.findall(pattern, header, flags=re.S):
        code = re.sub(r"VEMKN(?:_FIT)?_API |\s+", " ", declaration).replace("extern  ", "extern ").strip()
        code = re.sub(r" +", " ", code)
        found[re.search(r"(\w+)(?:\(|;)", code)[1]] = (code, comment_lines(comment))
    return found


def synopsis(code):
    # A parameter stays on one line.
    bound = re.sub("(?<!,) ", "\x01", code)
    lines = textwrap.wrap(bound, 76, subsequent_indent="    ", break_on_hyphens=False)
    lines = [line.replace("\x01", " ") for line in lines]
    return [".PP", ".nf", *[f"\\fB{line}\\fP" for line in lines], ".fi"]


def page(of, name, names, purpose, body, others):
    see = ",\n".join(f".BR {other} (3)" for other in others).replace(",\n", " ,\n")
    # A paragraph request right after a heading says nothing.
    body = [line for before, line in zip([""] + body, body) if not (line == ".PP" and before.startswith(".S"))]
    library = of["library"]
    return "\n".join(
        [
            f".\\\" Written by make_pages.py from {of['header']}, which is the place to change it.",
            f'.TH {name.upper()} 3 @MAN_DATE@ "{library} @PROJECT_VERSION@" "{library}"',
            ".SH NAME",
            ",\n".join(names) + f" \\- {purpose}",
            *body,
            ".SH SEE ALSO",
            see,
            "",
        ]
    )


def overview(of, header):
    opening = comment_lines(re.search(r"/\*.*?\*/", header, flags=re.S)[0])
    licence = next(i for i, line in enumerate(opening) if line.startswith("SPDX"))
    opening = opening[licence + 1 :]
    package = of["package"]
    body = [
        ".SH SYNOPSIS",
        ".nf",
        f".B #include <{of['header']}>",
        ".PP",
        f".B cc host.c $(pkg\\-config \\-\\-cflags \\-\\-libs {package})",
        ".fi",
        ".SH DESCRIPTION",
        *of["description"],
        *roff(opening),
    ]
    types = re.findall(r"^(?:enum \{.*?^\};|typedef struct \w+ \{.*?^\} \w+;)", header, flags=re.S | re.M)
    if types:
        body += [".SH TYPES", *[line for each in types for line in literal(each.split("\n"))]]
    body += [".SH FUNCTIONS"]
    for name, (purpose, names) in of["pages"].items():
        body += [".TP", f".BR {name} (3)", *prose(f"{purpose}: {', '.join(names.split())}")]
    body += [".SH FILES"]
    for name, what in of["files"]:
        body += [".TP", f"\\fI{name}\\fP", what]
    return page(of, of["page"], [of["page"]], of["purpose"], body, list(of["pages"]))


def all_pages(of, header):
    known = declarations(header[: header.index(of["end"])])
    placed = [name for _, names in of["pages"].values() for name in names.split()]
    if sorted(placed) != sorted(known):
        sys.exit(f"on no page or not declared: {set(placed) ^ set(known)}")

    pages = {}
    everything = [of["page"], *of["pages"]]
    for name, (purpose, names) in of["pages"].items():
        body = [".SH SYNOPSIS", ".nf", f".B #include <{of['header']}>", ".fi"]
        for each in names.split():
            body += synopsis(known[each][0])
        body += [".SH DESCRIPTION", "Words used here, and what every call does to the process, are explained in", f".BR {of['page']} (3)."]
        for each in names.split():
            body += [f".SS {each}", *described(known[each][1])]
        others = [other for other in everything if other != name]
        pages[name] = page(of, name, names.split(), purpose, body, others)
    pages[of["page"]] = overview(of, header)
    return pages


def main(arguments):
    check = arguments[0] == "--check"
    headers, folder = arguments[-2:]
    bad = []
    for of in LIBRARIES:
        header = (pathlib.Path(headers) / of["header"]).read_text()
        for name, text in all_pages(of, header).items():
            path = pathlib.Path(folder) / f"{name}.3.in"
            if not check:
                path.write_text(text)
            elif not path.exists() or path.read_text() != text:
                bad.append(path.name)
    if bad:
        sys.exit(f"not what the headers say, run docs/man/make_pages.py: {' '.join(bad)}")


main(sys.argv[1:])
