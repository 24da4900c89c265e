"""Nine ways to fit robustly beside vemkn-fit, each as its users would: defaults, with inputs scaled where the method asks for it.

A contestant takes the folder of a task, in which train.csv and test.csv have inputs x1, x2, ... and a last column y, and gives
the predictions for test.csv.
"""

import os
import pathlib
import subprocess
import warnings

import numpy
from sklearn.compose import TransformedTargetRegressor
from sklearn.ensemble import GradientBoostingRegressor, RandomForestRegressor
from sklearn.linear_model import HuberRegressor, LinearRegression, RANSACRegressor
from sklearn.neural_network import MLPRegressor
from sklearn.pipeline import make_pipeline
from sklearn.preprocessing import StandardScaler

HERE = pathlib.Path(__file__).resolve().parent


def scaled(model):
    return make_pipeline(StandardScaler(), model)


PYTHON = {
    "gradient boosting": lambda: GradientBoostingRegressor(loss="absolute_error", random_state=1),
    "random forest": lambda: RandomForestRegressor(random_state=1),
    "MLPRegressor": lambda: TransformedTargetRegressor(
        scaled(MLPRegressor(max_iter=2000, random_state=1)), transformer=StandardScaler()),
    "Huber": lambda: scaled(HuberRegressor(max_iter=1000)),
    "RANSAC": lambda: scaled(RANSACRegressor(LinearRegression(), random_state=1)),
}

R = ("lmrob", "gam scat", "nnet", "rlm")

OURS = "vemkn-fit"

NAMES = (OURS, *PYTHON, *R)


def table(path):
    return numpy.loadtxt(path, delimiter=",", skiprows=1, ndmin=2)


def of_python(name, task):
    train, test = table(task / "train.csv"), table(task / "test.csv")
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        return PYTHON[name]().fit(train[:, :-1], train[:, -1]).predict(test[:, :-1])


def quiet(command):
    environment = {**os.environ, "OMP_NUM_THREADS": "1"}
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, env=environment)


def of_r(name, task):
    quiet(["Rscript", HERE / "rivals.R", name, task])
    return table(task / "of_r.csv")[:, 0]


def ours(program, task):
    quiet([program, task / "train.csv", "--target", "y", "--method", "robust", "--no-plot", "--out", task / "fit"])
    quiet([program, "predict", task / "fit" / "model.json", task / "test.csv", "-o", task / "ours.csv"])
    return table(task / "ours.csv")[:, -1]


def predictions(name, program, task):
    if name == OURS:
        return ours(program, task)
    return of_r(name, task) if name in R else of_python(name, task)
