"""`python -m ncds plot PROJECT DATASET VARIABLE -o FILE`: a dataset's batch trajectories drawn
into a PNG or SVG file, without a display."""

import argparse
import sys
from pathlib import Path

FORMATS = {".png": "png", ".svg": "svg"}


def _parser():
    parser = argparse.ArgumentParser(prog="python -m ncds",
                                     description="Figures of the datasets of ncds projects.")
    commands = parser.add_subparsers(dest="command", required=True, metavar="COMMAND")
    plot = commands.add_parser(
        "plot", help="draw a variable's batch trajectories into an image file",
        description="Draw a variable's trajectories, one line per batch, into a PNG or SVG "
                    "file (the format follows the file's suffix).")
    plot.add_argument("project", metavar="PROJECT", help="the project file")
    plot.add_argument("dataset", metavar="DATASET", help="the batch dataset's name or number")
    plot.add_argument("variable", metavar="VARIABLE", help="the variable to plot")
    plot.add_argument("-o", "--output", required=True, metavar="FILE",
                      help="the image file to write: .png or .svg")
    plot.add_argument("--aligned", metavar="DATASET",
                      help="an aligned dataset to show to the right of DATASET")
    plot.add_argument("--maturity", metavar="VAR",
                      help="the x variable of DATASET (default: the observation number in its "
                           "batch; a date-time variable counts hours from the batch's start)")
    plot.add_argument("--band", action="store_true",
                      help="add the mean trajectory and its +-2 SD band to the aligned data "
                           "(DATASET itself when --aligned is not given)")
    return parser, plot


def _which(text):
    """A dataset given on the command line: a number or a name."""
    return int(text) if text.isdigit() else text


def _draw(args, project):
    import matplotlib.pyplot as plt

    from . import plot

    data = project.load(_which(args.dataset))
    if args.aligned:
        aligned = project.load(_which(args.aligned))
        figure = plot.compare(data, aligned, args.variable, maturity=args.maturity)
        if args.band:
            plot.mean_band(aligned, args.variable, ax=figure.axes[1]).set_ylabel("")
        return figure
    figure, ax = plt.subplots(figsize=(8, 4.8), layout="constrained")
    plot.trajectories(data, args.variable, ax=ax, maturity=args.maturity)
    if args.band:
        plot.mean_band(data, args.variable, ax=ax)
    return figure


def main(argv=None):
    import matplotlib

    matplotlib.use("Agg")
    from . import Error, open as open_project

    parser, plot_parser = _parser()
    args = parser.parse_args(argv)
    suffix = Path(args.output).suffix.lower()
    if suffix not in FORMATS:
        plot_parser.error(f"the output file must end in {' or '.join(FORMATS)}: {args.output}")
    if args.band and args.maturity and not args.aligned:
        plot_parser.error("--band draws against the observation number; leave out --maturity "
                          "or give the aligned dataset with --aligned")
    try:
        with open_project(args.project) as project:
            figure = _draw(args, project)
        figure.savefig(args.output, format=FORMATS[suffix])
    except (Error, ValueError) as error:
        print(f"ncds plot: error: {error}", file=sys.stderr)
        return 2
    except OSError as error:
        print(f"ncds plot: cannot write {args.output}: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
