"""The command line `kestrane`: one sub-command for each question that a calibration raises.

In go files; out come files, a summary for people on standard output, and JSON for programs. Every
figure comes from the package `kestrane`. One file holds one sub-command; what they share:

- app: the group, standard output, exit statuses
- options: options of more than one sub-command
- inputs: clouds, tables and other files, with what they are and their hashes
- toml_files: limits.toml, device.toml and the numbers of a compensation
- console: what people read;  json_results: what programs read
"""
