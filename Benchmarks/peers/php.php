<?php
// PHP's own templates: php.php DATA TEMPLATES [letters OUTPUT]. Answers the commands that Driver.h describes.

ini_set('memory_limit', '-1');
[, $data, $templates] = $argv;

set_error_handler(function ($level, $message) {
    throw new ErrorException($message);
});

function dataOf(string $name): array
{
    global $data;
    return json_decode(file_get_contents("$data/$name.json"), true, 512, JSON_THROW_ON_ERROR);
}

function show(string $page, array $variables): void
{
    extract($variables);
    include $page;
}

function render(string $page, array $variables): string
{
    ob_start();
    show($page, $variables);
    return ob_get_clean();
}

function compile(string $text): Closure
{
    return eval("return function () { ?>$text<?php };");
}

class Workload
{
    private Closure $do;
    private ?string $text = null;

    public function __construct(string $name)
    {
        global $data, $templates;
        if (str_starts_with($name, 'compile-')) {
            $text = $this->text = file_get_contents("$data/php-$name.txt");
            $this->do = fn() => compile($text);
            return;
        }
        $variables = dataOf($name);
        $page = "$templates/" . explode('-', $name)[0] . '.php';
        $this->do = fn() => render($page, $variables);
    }

    public function run(int $count): string
    {
        $do = $this->do;
        $wall = hrtime(true);
        $processor = self::processorSeconds();
        for ($done = 0; $done < $count; $done++) {
            $do();
        }
        $processor = self::processorSeconds() - $processor;
        $wall = (hrtime(true) - $wall) / 1e9;
        return $wall / $count . ' ' . $processor / $count;
    }

    public function output(): string
    {
        return ($this->do)();
    }

    public function memory(): float
    {
        ($this->do)();
        $before = memory_get_usage();
        $compiled = ($this->do)();
        return (memory_get_usage() - $before) / strlen($this->text);
    }

    private static function processorSeconds(): float
    {
        $usage = getrusage();
        return $usage['ru_utime.tv_sec'] + $usage['ru_stime.tv_sec']
            + ($usage['ru_utime.tv_usec'] + $usage['ru_stime.tv_usec']) / 1e6;
    }
}

if (count($argv) === 5) {
    $out = fopen($argv[4], 'w');
    ob_start(fn(string $piece) => fwrite($out, $piece) === false ? false : '', 1 << 16);
    show("$templates/letters.php", dataOf('letters'));
    ob_end_flush();
    fclose($out);
    exit;
}
$name = '';
$workload = null;
while (($line = fgets(STDIN)) !== false) {
    try {
        [$command, $wanted, $argument] = explode(' ', trim($line)) + [2 => ''];
        if ($wanted !== $name) {
            $workload = null;
            $name = '';
            $workload = new Workload($wanted);
            $name = $wanted;
        }
        if ($command === 'run') {
            $answer = $workload->run((int)$argument);
        } elseif ($command === 'output') {
            file_put_contents($argument, $workload->output());
            $answer = 'done';
        } else {
            $answer = $workload->memory();
        }
    } catch (Throwable $error) {
        $answer = 'error ' . str_replace("\n", ' ', $error->getMessage());
    }
    fwrite(STDOUT, "$answer\n");
}
