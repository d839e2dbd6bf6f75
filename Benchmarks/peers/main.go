// Go's text/template: main DATA TEMPLATES [letters OUTPUT]. Answers the commands that Driver.h describes.
package main

import (
	"bufio"
	"bytes"
	"encoding/json"
	"errors"
	"fmt"
	"os"
	"regexp"
	"runtime"
	"strconv"
	"strings"
	"syscall"
	"text/template"
	"time"
)

type team struct {
	Name  string
	Score int
}

type item struct {
	Count int
	Name  string
}

type letter struct {
	Number, Total, Regular             int
	Date, Name, Street, Postcode, City string
	Items                              []item
}

type place struct{ Name, City string }

type product struct {
	Sku, Name string
	Maker     place
	Price     struct{ Amount, Pack int }
	Stock     struct {
		Pieces   int
		Expected string
	}
}

// The data of all workloads; each uses some of it.
type page struct {
	Rows     [][]int
	Title    string
	Teams    []team
	Shop     place
	Currency string
	Products []product
	Letters  []letter
}

var reduced = regexp.MustCompile(`^(SALE|LAST)-\d+$`)

func bound(products []product, isBetter func(amount, best int) bool) int {
	best := products[0].Price.Amount
	for _, each := range products {
		if isBetter(each.Price.Amount, best) {
			best = each.Price.Amount
		}
	}
	return best
}

var functions = template.FuncMap{
	"add":      func(left, right int) int { return left + right },
	"multiply": func(left, right int) int { return left * right },
	"join":     func(texts ...string) string { return strings.Join(texts, "") },
	"price":    func(amount int, currency string) string { return strconv.Itoa(amount) + " " + currency },
	"reduced":  func(sku string) bool { return reduced.MatchString(sku) },
	"least": func(products []product) int {
		return bound(products, func(amount, best int) bool { return amount < best })
	},
	"greatest": func(products []product) int {
		return bound(products, func(amount, best int) bool { return amount > best })
	},
}

func compile(text string) (*template.Template, error) {
	return template.New("page").Funcs(functions).Parse(text)
}

func readPage(data, templates, name string) (*template.Template, *page, error) {
	text, err := os.ReadFile(templates + "/" + strings.Split(name, "-")[0] + ".tmpl")
	if err != nil {
		return nil, nil, err
	}
	parsed, err := compile(string(text))
	if err != nil {
		return nil, nil, err
	}
	encoded, err := os.ReadFile(data + "/" + name + ".json")
	if err != nil {
		return nil, nil, err
	}
	values := new(page)
	return parsed, values, json.Unmarshal(encoded, values)
}

type workload struct {
	run  func() (string, error)
	text string // of what is compiled
}

func prepare(data, templates, name string) (*workload, error) {
	if strings.HasPrefix(name, "compile-") {
		text, err := os.ReadFile(data + "/go-" + name + ".txt")
		run := func() (string, error) {
			_, err := compile(string(text))
			return "", err
		}
		return &workload{run, string(text)}, err
	}
	parsed, values, err := readPage(data, templates, name)
	room := 0
	run := func() (string, error) {
		out := new(bytes.Buffer)
		out.Grow(room)
		err := parsed.Execute(out, values)
		room = out.Len()
		return out.String(), err
	}
	return &workload{run, ""}, err
}

func processorSeconds() float64 {
	var usage syscall.Rusage
	if err := syscall.Getrusage(syscall.RUSAGE_SELF, &usage); err != nil {
		panic(err)
	}
	return float64(usage.Utime.Nano()+usage.Stime.Nano()) / 1e9
}

func measure(measured *workload, argument string) (string, error) {
	count, err := strconv.Atoi(argument)
	if err != nil {
		return "", err
	}
	start, processor := time.Now(), processorSeconds()
	for done := 0; done < count; done++ {
		if _, err := measured.run(); err != nil {
			return "", err
		}
	}
	processor = processorSeconds() - processor
	wall := time.Since(start).Seconds()
	return fmt.Sprint(wall/float64(count), " ", processor/float64(count)), nil
}

func heap() uint64 {
	var statistics runtime.MemStats
	runtime.GC()
	runtime.GC()
	runtime.ReadMemStats(&statistics)
	return statistics.HeapAlloc
}

func memory(measured *workload) (string, error) {
	before := heap()
	compiled, err := compile(measured.text)
	after := heap()
	runtime.KeepAlive(compiled)
	return fmt.Sprint(float64(after-before)/float64(len(measured.text)) + 1), err // the nodes refer to the text, read before
}

func answer(measured *workload, command, argument string) (string, error) {
	switch command {
	case "run":
		return measure(measured, argument)
	case "output":
		text, err := measured.run()
		if err != nil {
			return "", err
		}
		return "done", os.WriteFile(argument, []byte(text), 0o644)
	case "memory":
		return memory(measured)
	}
	return "", errors.New("no such command: " + command)
}

func serve(data, templates string) {
	var current *workload
	name := ""
	lines := bufio.NewScanner(os.Stdin)
	for lines.Scan() {
		words := append(strings.Fields(lines.Text()), "", "", "")
		var err error
		if words[1] != name {
			current, name = nil, ""
			if current, err = prepare(data, templates, words[1]); err == nil {
				name = words[1]
			}
		}
		text := ""
		if err == nil {
			text, err = answer(current, words[0], words[2])
		}
		if err != nil {
			text = "error " + strings.ReplaceAll(err.Error(), "\n", " ")
		}
		fmt.Println(text)
	}
}

func writeLetters(data, templates, output string) error {
	parsed, values, err := readPage(data, templates, "letters")
	if err != nil {
		return err
	}
	file, err := os.Create(output)
	if err != nil {
		return err
	}
	out := bufio.NewWriterSize(file, 1<<16)
	if err := parsed.Execute(out, values); err != nil {
		return err
	}
	if err := out.Flush(); err != nil {
		return err
	}
	return file.Close()
}

func main() {
	if len(os.Args) == 5 {
		if err := writeLetters(os.Args[1], os.Args[2], os.Args[4]); err != nil {
			fmt.Fprintln(os.Stderr, err)
			os.Exit(1)
		}
		return
	}
	serve(os.Args[1], os.Args[2])
}
