"""What the Python scripts of this folder do with the words of their call before anything else."""
import sys


def answer_help(text, options=None):
    """Prints the script's own text and ends where help is asked for; ends with 2 where an option is none of these."""
    words = sys.argv[1:]
    if "--help" in words or "-h" in words:
        print(text.strip())
        sys.exit(0)
    unknown = [word for word in words if word.startswith("-") and options is not None and word not in options]
    if unknown:
        print(f"unknown option: {' '.join(unknown)}\n{text.strip()}", file=sys.stderr)
        sys.exit(2)
