#!/usr/bin/env python3
"""fpsolve as tools drive it.

    conformance_test.py FPSOLVE session   # one command at a time through a pipe
    conformance_test.py FPSOLVE cli       # the command line's contract

session: fpsolve runs with no arguments on a pipe, as an interactive client
starts it; every command is written only after the answer to the one before
has been read in full (a hang is a failure after 20 s), and every answer is
compared.  cli: exit statuses, standard input, strict numbers, --version,
--help, time limits and where statistics go.  Exit status 1 on any mismatch.
"""
import os
import re
import subprocess
import sys
import tempfile
import threading

FAILURES = []


def expect(what, got, want):
    ok = want.fullmatch(got) if isinstance(want, re.Pattern) else got == want
    if not ok:
        FAILURES.append("%s:\n  got  %r\n  want %r" % (what, got, want))


class Client:
    def __init__(self, exe):
        self.p = subprocess.Popen([exe], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE, text=True)
        self.line = 0

    def ask(self, command):
        """Writes one command and reads its whole answer (balanced parentheses)."""
        self.line += 1
        self.p.stdin.write(command + "\n")
        self.p.stdin.flush()
        watchdog = threading.Timer(20, self.p.kill)
        watchdog.start()
        try:
            text = ""
            while True:
                line = self.p.stdout.readline()
                if not line:
                    return text + "<no answer>"
                text += line
                if paren_depth(text) <= 0:
                    return text.rstrip("\n")
        finally:
            watchdog.cancel()

    def check(self, command, want):
        expect("line %d %s" % (self.line + 1, command), self.ask(command), want)

    def error(self, command, message):
        """An error answer at this command's line, then the session goes on."""
        self.check(command, re.compile(r'\(error "line %d column \d+: %s.*"\)' %
                                       (self.line + 1, re.escape(message))))


def paren_depth(text):
    depth, in_string = 0, False
    for c in text:
        if c == '"':
            in_string = not in_string
        elif not in_string:
            depth += (c == "(") - (c == ")")
    return depth


def session(exe):
    version = subprocess.run([exe, "--version"], capture_output=True, text=True).stdout.split()[1]
    c = Client(exe)
    c.check("(set-option :print-success true)", "success")
    c.check("(get-option :print-success)", "true")
    c.check("(get-option :produce-assertions)", "false")
    for o in ("produce-unsat-cores", "produce-assignments", "produce-unsat-assumptions",
              "produce-assertions"):
        c.check("(set-option :%s true)" % o, "success")
    c.check("(set-option :random-seed 7)", "success")
    c.check("(get-option :random-seed)", "7")
    c.check("(get-option :regular-output-channel)", '"stdout"')
    c.check("(set-option :global-declarations true)", "unsupported")
    c.check("(get-option :global-declarations)", "unsupported")
    c.error("(set-option :max-decisions 1.5)", "option 'max-decisions' expects a whole number")
    c.check("(get-option :max-decisions)", "0")
    c.check("(get-info :name)", '(:name "fpsolve")')
    c.check("(get-info :version)", '(:version "%s")' % version)
    c.check("(get-info :authors)", '(:authors "The qorv-fp authors")')
    c.check("(get-info :error-behavior)", "(:error-behavior continued-execution)")
    c.check("(get-info :assertion-stack-levels)", "(:assertion-stack-levels 0)")
    c.check("(get-info :frobnicate)", "unsupported")
    c.check("(set-logic QF_FP)", "success")
    c.check("(set-info :status unknown)", "success")
    c.check("(declare-const x Float16)", "success")
    c.check("(declare-fun y () Float16)", "success")
    c.check("(define-const one Float16 ((_ to_fp 5 11) RNE 1.0))", "success")
    c.check("(define-fun gt1 ((a Float16)) Bool (fp.gt a one))", "success")
    c.check("(define-sort H () Float16)", "success")
    c.check("(declare-const b Bool)", "success")
    c.check("(assert (! (gt1 x) :named xbig))", "success")
    c.check("(assert (! (fp.lt y one) :named ysmall))", "success")
    c.check("(assert (! (= b (fp.eq x (! y :named why))) :named link))", "success")
    c.check("(check-sat)", "sat")
    c.check("(get-value (b (fp.lt x y)))", re.compile(r"\(\(b false\)\n \(\(fp.lt x y\) (true|false)\)\)"))
    c.check("(get-assignment)", "((xbig true)\n (ysmall true)\n (link true))")
    c.check("(get-assertions)", "((! (gt1 x) :named xbig)\n (! (fp.lt y one) :named ysmall)\n"
            " (! (= b (fp.eq x (! y :named why))) :named link))")
    c.error("(get-unsat-core)", "get-unsat-core is not available")
    c.check("(push 2)", "success")
    c.check("(get-info :assertion-stack-levels)", "(:assertion-stack-levels 2)")
    c.check("(declare-const z H)", "success")
    c.check("(assert (! (fp.lt x y) :named xlty))", "success")
    c.check("(check-sat)", "unsat")
    # Deletion: link is not needed once x > 1, y < 1 and x < y are kept.
    c.check("(get-unsat-core)", "(xbig ysmall xlty)")
    c.error("(get-model)", "get-model is not available")
    c.error("(get-info :reason-unknown)", "get-info is not available")
    c.check("(pop 2)", "success")
    c.error("(assert (fp.isNaN z))", "undeclared name 'z'")
    c.error("(pop 1)", "pop of 1 levels, but only 0 pushed")
    c.check("(get-info :assertion-stack-levels)", "(:assertion-stack-levels 0)")
    c.check("(check-sat-assuming ((fp.lt x one) b))", "unsat")
    # b alone contradicts x > 1 > y; (fp.lt x one) is dropped first.
    c.check("(get-unsat-assumptions)", "(b)")
    # The assumptions stay in every re-solve: x < 1 needs only x > 1.
    c.check("(get-unsat-core)", "(xbig)")
    c.check("(check-sat-assuming ((not b)))", "sat")
    c.check("(get-value (b))", "((b false))")
    # Errors in the middle: each is reported and the session goes on.
    c.error("(assert (fp.isNaN))", "fp.isNaN expects 1 argument")
    c.error("(frobnicate 1 2)", "unknown command 'frobnicate'")
    c.error("(assert (fp.isNaN #z))", "expected '#b' or '#x' literal")
    c.error("(declare-fun f (Float16) Float16)", "declare-fun with parameters is not supported")
    c.check("(check-sat)", "sat")
    c.check('(echo "say ""hi""")', '"say ""hi"""')
    # reset-assertions drops declarations too; options stay.
    c.check("(reset-assertions)", "success")
    c.error("(assert (fp.isNaN x))", "undeclared name 'x'")
    # Assertions made without :produce-assertions keep no text to give back.
    c.check("(set-option :produce-assertions false)", "success")
    c.check("(declare-const w Float16)", "success")
    c.check("(assert (fp.isNaN w))", "success")
    c.error("(get-assertions)", "get-assertions is not enabled")
    c.error("(set-option :produce-assertions true)",
            "option ':produce-assertions' can be turned on only while there are no assertions")
    c.check("(reset-assertions)", "success")
    c.check("(set-option :produce-assertions true)", "success")
    c.check("(set-option :max-decisions 1)", "success")
    for command in ("(define-sort F () (_ FloatingPoint 3 4))", "(declare-const x F)",
                    "(declare-const y F)", "(declare-const z F)",
                    "(assert (or (fp.lt x y z) (fp.gt x y z)))", "(assert (fp.eq x z))"):
        c.check(command, "success")
    c.check("(check-sat)", "unknown")
    c.check("(get-info :reason-unknown)", "(:reason-unknown resourceout)")
    c.error("(get-model)", "get-model is not available")
    c.check("(get-info :all-statistics)",
            re.compile(r"\(:decisions \d+\n( :[a-z-]+ [0-9.]+\n)* :parse-time [0-9.]+\n"
                       r"( :[a-z-]+ [0-9.]+\n)* :time [0-9.]+\)"))
    # The regular channel moves to a file and back; statistics go to the
    # diagnostic channel (standard error), never between the answers.
    with tempfile.TemporaryDirectory() as tmp:
        path = os.path.join(tmp, "answers")
        c.p.stdin.write('(set-option :regular-output-channel "%s")\n(echo "in the file")\n'
                        '(set-option :regular-output-channel "stdout")\n' % path)
        c.p.stdin.flush()
        c.line += 3
        expect("answer after the channel comes back", c.p.stdout.readline(), "success\n")
        with open(path) as f:
            expect("the file channel", f.read(), 'success\n"in the file"\n')
    c.check("(set-option :stats true)", "success")
    c.check("(set-option :max-decisions 0)", "success")
    c.check("(check-sat)", "unsat")
    # reset: options back to the startup ones (no print-success from now on).
    c.check("(reset)", "success")
    c.check("(get-option :print-success)", "false")
    c.check("(get-option :max-decisions)", "0")
    c.error("(get-info :reason-unknown)", "get-info is not available")
    c.check("(get-info :all-statistics)", re.compile(r"\(:decisions 0\n(.|\n)*"))
    c.p.stdin.write("(exit)\n(check-sat)\n")
    c.p.stdin.close()
    expect("after exit", c.p.stdout.read(), "")
    expect("exit status after errors", c.p.wait(timeout=20), 1)
    stats = c.p.stderr.read()
    expect("statistics on standard error", stats[:12], "(:decisions ")


def run(exe, args, stdin="", timeout=60):
    p = subprocess.run([exe] + args, input=stdin, capture_output=True, text=True, timeout=timeout)
    return p.returncode, p.stdout, p.stderr


def cli(exe):
    sat = "(declare-const x Float32)(assert (fp.isNaN x))(check-sat)\n"
    hard = ("(define-sort F () (_ FloatingPoint 3 4))(declare-const x F)(declare-const y F)"
            "(declare-const z F)(assert (or (fp.lt x y z) (fp.gt x y z)))(assert (fp.eq x z))"
            "(check-sat)\n")
    with tempfile.TemporaryDirectory() as tmp:
        f = os.path.join(tmp, "p.smt2")
        with open(f, "w") as out:
            out.write(sat)
        expect("a file", run(exe, [f]), (0, "sat\n", ""))
        expect("no file, a pipe", run(exe, [], sat), (0, "sat\n", ""))
        expect("'-'", run(exe, ["-"], sat), (0, "sat\n", ""))
        status, out, err = run(exe, [os.path.join(tmp, "missing.smt2")])
        expect("a missing file", (status, out), (4, ""))
        expect("a missing file says so", "cannot open" in err, True)
        expect("a directory", run(exe, [tmp])[0], 4)
        expect("two files", run(exe, [f, f])[0], 2)
        expect("a channel that cannot be opened",
               run(exe, ["--regular-output-channel=" + os.path.join(tmp, "no", "x"), f])[0], 2)
    status, out, _ = run(exe, ["--version"])
    expect("--version", (status, bool(re.fullmatch(r"fpsolve \d+\.\d+\.\d+\n", out))), (0, True))
    status, out, _ = run(exe, ["--help"])
    expect("--help", (status, "--max-decisions=N" in out and "--no-probe" in out), (0, True))
    for bad in (["--max-decisions", "1.5"], ["--max-decisions=1.5"], ["--max-decisions"],
                ["--timeout=-1"], ["--timeout", "1e3"], ["--tlimit=2.5"], ["-T:abc"],
                ["--probe=yes"], ["--no-timeout"], ["--frobnicate"], ["-x"]):
        status, out, err = run(exe, bad + ["-"], sat)
        expect("bad option %s" % bad, (status, out, err.startswith("fpsolve: ")), (2, "", True))
    for limit in (["--max-decisions", "1"], ["--max-decisions=1"]):
        expect("limit %s" % limit, run(exe, limit, hard), (0, "unknown\n", ""))
    for limit in (["-T:30"], ["--tlimit=30000"], ["--timeout", "30"], ["--timeout=30.5"]):
        expect("time limit %s" % limit, run(exe, limit, sat), (0, "sat\n", ""))
    expect("flags", run(exe, ["--print-success", "--no-probe", "--check=true"],
                        "(set-logic QF_FP)" + sat), (0, "success\n" * 3 + "sat\n", ""))
    status, out, err = run(exe, ["--stats"], sat)
    expect("--stats", (status, out, err[:12]), (0, "sat\n", "(:decisions "))
    expect("an input error goes on", run(exe, [], "(assert (fp.isNaN))\n" + sat),
           (1, '(error "line 1 column 9: fp.isNaN expects 1 argument")\nsat\n', ""))
    status, out, _ = run(exe, ["--demo"])
    expect("--demo", (status, "\nsat\n" in out and "define-fun" in out), (0, True))


def main(argv):
    exe, mode = argv[1], argv[2]
    {"session": session, "cli": cli}[mode](exe)
    for f in FAILURES:
        print("FAIL", f)
    print("%s: %d failure(s)" % (mode, len(FAILURES)))
    return 1 if FAILURES else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
