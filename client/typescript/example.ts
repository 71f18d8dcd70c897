/*
 * example.ts BASE - a client in TypeScript. SWITCHING_SESSION is the session's token. The compiler checks its paths, keys,
 * values and answers: check.sh makes switching.d.ts from openapi.json. The client creates a VLAN, walks through the VLANs,
 * and filters an address.
 */
import createClient from "openapi-fetch";
import type { paths } from "./switching.js";

declare const process: { argv: string[]; env: Record<string, string | undefined> };
const baseUrl = process.argv[2];

const client = createClient<paths>({
  baseUrl,
  headers: { Session: process.env["SWITCHING_SESSION"] },
  querySerializer: { allowReserved: true }, // the interface does not percent-decode the values of a query
});

type Answer = { resp: { respCode: number; respMsg: string; status: "success" | "fail" } };
type Success<A extends Answer> = Extract<A, { resp: { status: "success" } }>;

/* Returns the answer of a request, or throws if it failed. A failure has HTTP status 200, too. */
async function succeeded<A extends Answer>(request: Promise<{ data?: A; response: Response }>): Promise<Success<A>> {
  const { data, response } = await request;
  if (!data) throw new Error(`HTTP ${response.status}`);
  if (data.resp.status !== "success") throw new Error(`${data.resp.respCode} ${data.resp.respMsg}`);
  return data as Success<A>;
}

/* Create VLAN 30, and give port 4 its PVID. */
await succeeded(client.POST("/vlan/create", { params: { query: { vlanNum: 30 } } }));
await succeeded(client.PUT("/vlan/if-pvid", { params: { query: { ifNum: 4 } }, body: { vlanNum: 30 } }));

const again = await client.POST("/vlan/create", { params: { query: { vlanNum: 30 } } });
console.log(`once more: ${again.data?.resp.respMsg}`);

/* Walk through the VLANs: each answer is the next question, a failure ends the walk. */
const vlans = [];
for (let vid = 0; ; ) {
  const { data } = await client.GET("/vlan/next-vlan", { params: { query: { vid } } });
  if (!data || !("vlan" in data)) break;
  vlans.push((vid = data.vlan.nextVid));
}
console.log(`VLANs: ${vlans.join(" ")}`);

/* Create a static filter. The writes take its address in the body, the read takes it in the query. */
const filter = { vlanId: 30, macAddr: "02:00:00:00:0A:01" };
await succeeded(client.POST("/static-filter/filter",
  { params: { query: { vlanId: filter.vlanId } }, body: { macAddr: filter.macAddr } }));
await succeeded(client.POST("/static-filter/filter-src-intf",
  { params: { query: { vlanId: filter.vlanId, ifNum: 5 } }, body: { macAddr: filter.macAddr } }));
const sources = await succeeded(client.GET("/static-filter/filter-src-intf-list", { params: { query: filter } }));
console.log(`sources of ${filter.macAddr}: ${sources.staticFilter.srcIntfList}`);

/* The compiler refuses a wrong value, and a wrong key. */
await succeeded(client.PUT("/storm-control/mode", { body: { stormCtrlMode: "broadcast", state: "enable" } }));
// @ts-expect-error: there is no mode "all"
await client.PUT("/storm-control/mode", { body: { stormCtrlMode: "all", state: "enable" } });
// @ts-expect-error: there is no key "mode"
await client.GET("/storm-control/mode", { params: { query: { mode: "broadcast" } } });
