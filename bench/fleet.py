"""What a fleet costs its servers; see `bench/fleet --help`.

Figures are of this machine and this moment: quote the ratios, and capacities together with what they were measured on.
"""

import argparse
import signal
import sys

import fleet_capacity
import fleet_machines
import fleet_simulation


def arguments():
    parser = argparse.ArgumentParser(prog="bench/fleet", description="""Without arguments: what one core of a server
        carries, measured with the real nginx. The options below --simulate and --machines belong to them.""")
    parser.add_argument("--simulate", type=int, metavar="MACHINES", help="simulate a release to so many machines, and "
                        "one whose script is missing, so that all of them fetch the whole container")
    costs = fleet_simulation.Costs()
    for name, value, meaning in (
            ("servers", 1, "that share the load"), ("cores", 1, "of each"), ("megabits", 1000, "a second, of each"),
            ("connections", 768, "that nginx takes for each core (worker_connections)"),
            ("container", costs.container, "bytes of the container"), ("script", costs.script, "bytes of a script"),
            ("scripts", 50, "kept on the servers"), ("behind", 0.05, "share of the machines that are behind already"),
            ("furthest", 50, "so many versions behind at most"), ("new", 0.01, "share of the machines that are new")):
        parser.add_argument(f"--{name}", type=type(value), default=value, metavar="N", help=f"{meaning} (%(default)s)")
    parser.add_argument("--machines", type=int, metavar="N", help="run the real tool for so many machines against two "
                        "servers, one of which dies while a release is pushed")
    parser.add_argument("--versions", type=int, default=51, metavar="N", help="with --machines: so many are out")
    parser.add_argument("--kept", type=int, default=30, metavar="N", help="with --machines: so many scripts are kept")
    return parser.parse_args()


def main():
    options = arguments()
    if options.simulate:
        signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # who reads the first line only need not hear of the rest
        fleet_simulation.released_and_worst(options)
    elif options.machines:
        sys.exit(0 if fleet_machines.play(options.machines, options.versions, options.kept) else 1)
    else:
        fleet_capacity.measure()


if __name__ == "__main__":
    main()
