"""ncds: projects and datasets of multivariate (batch) process data, from Python.

    import ncds
    with ncds.open("fermentation.ncds") as project:
        data = project.load("aligned")
        data.values        # numpy view of the matrix, no copy (-99 = missing)
        data.to_pandas()   # a DataFrame, decoded, indexed by (batch, phase, observation)
"""

from ._ncds import Error
from .project import Dataset, Project, from_pandas, open

__all__ = ["Dataset", "Error", "Project", "from_pandas", "open"]
