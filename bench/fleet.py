"""Measures and simulates what a fleet costs its servers; see `bench/fleet --help`.

The figures depend on the computer and its load: quote ratios, and quote capacities with the computer they come from.
"""

import argparse
import signal
import sys

import fleet_capacity
import fleet_machines
import fleet_simulation


def arguments():
    parser = argparse.ArgumentParser(prog="bench/fleet", description="""Without arguments, measures what one
        core of a real nginx carries. The other options refine --simulate and --machines.""")
    parser.add_argument("--simulate", type=int, metavar="MACHINES", help="simulate a release, and a release "
                        "whose script is missing, so that every machine fetches the whole container")
    costs = fleet_simulation.Costs()
    for name, value, meaning in (
            ("servers", 1, "that share the load"), ("cores", 1, "of each"), ("megabits", 1000, "a second, of each"),
            ("connections", 768, "that nginx takes for each core (worker_connections)"),
            ("container", costs.container, "bytes of the container"), ("script", costs.script, "bytes of a script"),
            ("scripts", 50, "kept on the servers"), ("behind", 0.05, "share of the machines that are behind already"),
            ("furthest", 50, "most versions a machine is behind"), ("new", 0.01, "share of the machines that are new")):
        parser.add_argument(f"--{name}", type=type(value), default=value, metavar="N", help=f"{meaning} (%(default)s)")
    parser.add_argument("--machines", type=int, metavar="N", help="run the real tool on N machines against two "
                        "servers, one of which dies during a push")
    parser.add_argument("--versions", type=int, default=51, metavar="N", help="with --machines: published versions")
    parser.add_argument("--kept", type=int, default=30, metavar="N", help="with --machines: kept scripts")
    return parser.parse_args()


def main():
    options = arguments()
    if options.simulate:
        signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # end quietly when a reader such as head closes the pipe
        fleet_simulation.released_and_worst(options)
    elif options.machines:
        sys.exit(0 if fleet_machines.play(options.machines, options.versions, options.kept) else 1)
    else:
        fleet_capacity.measure()


if __name__ == "__main__":
    main()
