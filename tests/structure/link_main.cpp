/** @file
 * A program that does nothing: what matters is that it links.
 */
int main()
{
    return 0;
}
