"""Many devices at once: each in a process of its own, so that none can take another with it.

In goes a plan; out come a folder for each device, a page and a table of all of them.

- plan: the plan's file and patterns of names
- job: one device, and the orders that hold for all
- folder: one batch at a time in a folder
- child: the process that calibrates one device
- watch: starts a child, ends it where it has to, and says how it went
- scheduler: spreads the watching over Dask's workers, or over threads
- overview: index.html and summary.csv

Nothing but small dictionaries goes between the processes: results are files, in a folder that all of
them see. Only `scheduler` knows of Dask, and only `child` calls the library.
"""
