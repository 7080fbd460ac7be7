#!/usr/bin/python3
"""Writes examples/data/fermentation.csv: the process data of a campaign of fed-batch
fermentations, a realistic multivariate batch data set for trying ncds out.

32 batches run one after the other, each sampled every 12 minutes for 48 to 56 hours, in
three phases: Lag (the culture adapts), Growth (exponential growth on the initial glucose)
and Production (glucose fed, temperature lowered, product formed). Twelve process variables
follow the biology with measurement noise: temperature, pH, dissolved oxygen, agitation, air
flow, head pressure, feed rate, glucose, biomass, product, and CO2 and O2 in the off-gas. The
pH probe drifts slowly over the campaign; the batches differ in inoculum and growth rate; batch
B17 loses cooling during production and batch B25 is underfed. A few values are missing (empty
cells): single dropouts and an hour-long outage of the oxygen probe in batch B09.

Columns: ObsID (batch and sample number), Batch, Phase, Time (ISO 8601), then the variables.
The output is the same on every run (fixed seed). Usage:
    /usr/bin/python3 examples/make_fermentation_data.py [OUTPUT]
"""
import csv
import datetime
import math
import os
import random
import sys

SEED = 20240108
BATCHES = 32
STEP_MINUTES = 12
CAMPAIGN_START = datetime.datetime(2024, 1, 8, 6, 0)
VARIABLES = ["Temperature", "pH", "DissolvedO2", "Agitation", "AirFlow", "Pressure",
             "FeedRate", "Glucose", "Biomass", "Product", "CO2", "O2"]
# Decimals each variable is written with.
DECIMALS = {"Temperature": 2, "pH": 3, "DissolvedO2": 1, "Agitation": 0, "AirFlow": 2,
            "Pressure": 3, "FeedRate": 2, "Glucose": 2, "Biomass": 2, "Product": 2, "CO2": 2,
            "O2": 2}
DROPOUT_RATE = 0.002


def simulate_batch(rng, index, start):
    """The rows of one batch as dictionaries, from its start time."""
    name = f"B{index + 1:02d}"
    hours = rng.uniform(48.0, 56.0)
    samples = int(hours * 60 / STEP_MINUTES)
    lag_end = rng.uniform(5.0, 8.0)
    mu_max = rng.gauss(0.26, 0.02)          # specific growth rate, 1/h
    biomass = rng.lognormvariate(math.log(0.35), 0.12)
    glucose = rng.gauss(20.0, 0.6)
    product = 0.0
    yield_xs = rng.gauss(0.48, 0.015)      # g biomass per g glucose
    q_product = rng.gauss(0.045, 0.004)    # g product per g biomass and hour
    feed_scale = 0.55 if name == "B25" else 1.0
    ph_offset = 0.0025 * index             # probe drift over the campaign
    agitation = 300.0
    rows = []
    production_start = None
    dt = STEP_MINUTES / 60.0
    for k in range(samples):
        t = k * dt
        if t < lag_end:
            phase = "Lag"
        elif production_start is None and glucose > 1.5:
            phase = "Growth"
        else:
            phase = "Production"
            if production_start is None:
                production_start = t
        # Biology: Monod growth on glucose, slowed in the lag phase.
        monod = glucose / (glucose + 0.4)
        mu = mu_max * monod * (0.15 + 0.85 * min(1.0, t / lag_end) ** 3)
        feed = 0.0
        if phase == "Production":
            since = t - production_start
            feed = feed_scale * min(0.8, 0.15 + 0.05 * since) * (1 + 0.02 * rng.gauss(0, 1))
        growth = mu * biomass * dt
        biomass += growth
        glucose = max(0.02, glucose - growth / yield_xs + feed * dt * 500.0 / 10.0 / 10.0
                      - 0.01 * biomass * dt)
        if phase == "Production":
            product += q_product * biomass * dt * monod
        # Control and off-gas.
        temperature = 30.0 if phase != "Production" else 28.0
        if name == "B17" and phase == "Production":
            temperature += 0.09 * (t - production_start) ** 1.2
        uptake = 18.0 * mu * biomass + 0.4 * biomass
        demand = min(1.0, uptake / 60.0)
        dissolved = max(28.0, 100.0 - 95.0 * demand)
        if dissolved <= 30.0:
            agitation = min(900.0, agitation + 12.0)
        air = 20.0 if biomass < 8.0 else 30.0
        pressure = 0.5 + 0.0005 * agitation / 10.0
        co2 = 0.1 + 0.9 * uptake / air
        o2 = 20.9 - 0.95 * uptake / air
        ph = 6.8 - (0.04 if phase == "Lag" else 0.0) + ph_offset + 0.0008 * t

        when = start + datetime.timedelta(minutes=STEP_MINUTES * k)
        values = {
            "Temperature": temperature + rng.gauss(0, 0.05),
            "pH": ph + rng.gauss(0, 0.008),
            "DissolvedO2": dissolved + rng.gauss(0, 1.2),
            "Agitation": agitation + rng.gauss(0, 3.0),
            "AirFlow": air + rng.gauss(0, 0.15),
            "Pressure": pressure + rng.gauss(0, 0.004),
            "FeedRate": feed,
            "Glucose": glucose * (1 + rng.gauss(0, 0.02)),
            "Biomass": biomass * (1 + rng.gauss(0, 0.015)),
            "Product": product * (1 + rng.gauss(0, 0.02)) + abs(rng.gauss(0, 0.01)),
            "CO2": co2 + rng.gauss(0, 0.03),
            "O2": o2 + rng.gauss(0, 0.03),
        }
        row = {"ObsID": f"{name}-{k + 1:03d}", "Batch": name, "Phase": phase,
               "Time": when.strftime("%Y-%m-%dT%H:%M:%S")}
        for variable in VARIABLES:
            outage = name == "B09" and variable == "DissolvedO2" and 20.0 <= t < 21.0
            if outage or rng.random() < DROPOUT_RATE:
                row[variable] = ""
            else:
                row[variable] = f"{values[variable]:.{DECIMALS[variable]}f}"
        rows.append(row)
    end = start + datetime.timedelta(minutes=STEP_MINUTES * samples)
    return rows, end


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    output = sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "data", "fermentation.csv")
    os.makedirs(os.path.dirname(os.path.abspath(output)), exist_ok=True)
    rng = random.Random(SEED)
    start = CAMPAIGN_START
    with open(output, "w", newline="") as f:
        writer = csv.DictWriter(f, fieldnames=["ObsID", "Batch", "Phase", "Time"] + VARIABLES,
                                lineterminator="\n")
        writer.writeheader()
        for index in range(BATCHES):
            rows, end = simulate_batch(rng, index, start)
            writer.writerows(rows)
            # Cleaning and set-up between batches, to the next whole hour.
            turnaround = end + datetime.timedelta(hours=rng.uniform(10.0, 16.0))
            start = turnaround.replace(minute=0, second=0) + datetime.timedelta(hours=1)
    return 0


if __name__ == "__main__":
    sys.exit(main())
