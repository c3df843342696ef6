// Writes the uncompressed point records of a LAZ file, as laz-perf reads them.
// node read_laz.js FILE.laz RECORDS [REPETITIONS]: with a number of repetitions, the best
// processor time of decoding all points is printed in seconds.
const fs = require('fs');
const {createLazPerf} = require('laz-perf');

async function main() {
  const [input, output, repetitions] = process.argv.slice(2);
  const perf = await createLazPerf();
  const file = fs.readFileSync(input);
  const filePointer = perf._malloc(file.length);
  perf.HEAPU8.set(file, filePointer);
  let best = Infinity;
  for (let run = 0; run < Number(repetitions || 1); ++run) {
    const reader = new perf.LASZip();
    reader.open(filePointer, file.length);
    const count = reader.getCount();
    const length = reader.getPointLength();
    const pointPointer = perf._malloc(length);
    const records = Buffer.alloc(count * length);
    const begin = process.cpuUsage();
    for (let i = 0; i < count; ++i) {
      reader.getPoint(pointPointer);
      records.set(perf.HEAPU8.subarray(pointPointer, pointPointer + length), i * length);
    }
    const used = process.cpuUsage(begin);
    best = Math.min(best, (used.user + used.system) / 1e6);
    if (run === 0) fs.writeFileSync(output, records);
    perf._free(pointPointer);
    reader.delete();
  }
  if (repetitions) console.log(best);
}

main().catch((error) => {
  console.error(error);
  process.exit(1);
});
