"""Field calibration in its safe form: what has moved since the table was made, and how surely."""

import kestrane
from kestrane import _simulation

# In a real host: PlaneTable.read("table.txt"), and the frames that the device captures now.
table = kestrane.calibrate_factory(_simulation.measure(planes=8, points=12000)).table
knock = [1e-3, 0, 0, 0.3, 0, 0.2]  # turned by 1 mrad about x, shifted by 0.3 and 0.2
frames = _simulation.measure(planes=8, points=6000, field=True, motion=knock)

# [snippet]
with kestrane.quiet():  # the solver's two lines
    result = kestrane.calibrate_field(table, frames)
if result.refused:
    raise SystemExit(result.refused)
moved = result.displacement
print(f"the sheets moved by {moved.rms:.3f} RMS, {moved.max:.3f} at most, sigma {moved.sigma:.4f}")
motion = result.smallest_motion  # what a host applies: p of the table lies at R p + t now
print("R", motion.R.round(6).tolist(), "t", motion.t.round(3))
for name, sigma, fixed in zip(
    result.directions.names, result.directions.sigma, result.directions.fixed, strict=True
):
    print(f"  {name:12} sigma {sigma:.4f}{'' if fixed else ', not fixed'}")
# [snippet end]
for finding in kestrane.judge(result, {"field_motion": 1.0}).findings:
    print(finding.level, finding.text)
assert 0.2 < moved.rms < 0.4 and not result.directions.fixed[0]
