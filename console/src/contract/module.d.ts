declare module "contract:schemas" {
  const data: unknown;
  export default data;
}
declare module "*.css";
