// Writes what a COPC file holds, as the package copc reads it: a line for each node with points,
// "level x y z points", in the order of the keys' texts, and their records one after the other.
// node read_copc.js FILE.copc.laz NODES RECORDS
const fs = require('fs');
const {Copc, Getter} = require('copc');

async function main() {
  const [input, nodesOutput, recordsOutput] = process.argv.slice(2);
  const getter = Getter.create(input);
  const copc = await Copc.create(getter);
  const nodes = {};
  const pages = [copc.info.rootHierarchyPage];
  while (pages.length > 0) {
    const page = await Copc.loadHierarchyPage(getter, pages.pop());
    Object.assign(nodes, page.nodes);
    pages.push(...Object.values(page.pages));
  }
  const lines = [];
  const records = [];
  for (const key of Object.keys(nodes).sort()) {
    const node = nodes[key];
    if (!node || node.pointCount === 0) continue;
    lines.push(`${key.split('-').join(' ')} ${node.pointCount}`);
    const bytes = await Copc.loadPointDataBuffer(getter, copc.header, node);
    records.push(Buffer.from(bytes.buffer, bytes.byteOffset, bytes.byteLength));
  }
  const {cube, spacing} = copc.info;
  console.log([...cube, spacing].join(' '));
  fs.writeFileSync(nodesOutput, lines.map((line) => line + '\n').join(''));
  fs.writeFileSync(recordsOutput, Buffer.concat(records));
}

main().catch((error) => {
  console.error(error);
  process.exit(1);
});
