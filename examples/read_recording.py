import json, sys, numpy
name = sys.argv[1] + "/group-1-item-1"
about = json.load(open(name + ".sigmf-meta"))["global"]
samples = numpy.fromfile(name + ".sigmf-data", dtype="<i2").astype("f4").view("c8")
frames = samples.reshape(-1, about["vantor:sweeps_per_frame"], about["vantor:samples_per_sweep"])
part = about["vantor:subsweeps"][0]
distances = part["start_m"] + part["step_m"] * numpy.arange(part["length"])
level = abs(frames[:, :, part["offset"]:part["offset"] + part["length"]]).mean(axis=(0, 1))
echo = level.argmax()
print(f"{len(frames)} frames, strongest echo at {distances[echo]:.3f} m: level {level[echo]:.1f}")
